#pragma once

#include "NvxQtSimulator/ArrayState.h"
#include "NvxQtSimulator/SpectrumMaker.h"

#include <QByteArray>

/// Makes the frames of one channel of a simulated array controller: a header of 32 bytes and one signed byte
/// a bin, in half dB above the reference level.
class ArrayFrameMaker
{
public:
    /// `state` outlives this and has the channel.
    ArrayFrameMaker(const ArrayState* state, size_t channel);

    /// The frame number `round` of the channel.
    QByteArray frame(uint32_t round);

private:
    const ArrayState* m_state;
    ArrayChannel m_channel;
    SpectrumMaker m_spectra;
};
