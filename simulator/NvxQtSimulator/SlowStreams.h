#pragma once

#include "NvxQtSimulator/SpectrumMaker.h"
#include "NvxQtSimulator/StreamService.h"

#include <optional>

/// The spectrum stream of one reader: spectra of the recorder's signal at the pace of its job setup, with an
/// event header each second.
class SpectrumStream : public StreamSession
{
    Q_OBJECT

public:
    SpectrumStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    void sendHeader();
    void sendSpectrum();

    std::optional<SpectrumMaker> m_maker;
    QElapsedTimer m_clock;
    uint32_t m_startTime = 0;
    int64_t m_startSample = 0;
    int64_t m_second = -1;
    uint64_t m_spectra = 0;
    uint32_t m_spectrumInEvent = 0;
};

/// The sensor stream of one reader: each second one message with what its start message asked for.
class SensorStream : public StreamSession
{
    Q_OBJECT

public:
    SensorStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    uint32_t m_messages = 0;
};

/// The epoch stream of one reader: text lines of trigger events from the connection on, without a start
/// message.
class EpochStream : public StreamSession
{
    Q_OBJECT

public:
    EpochStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    void sendLine(bool started);

    uint64_t m_seconds = 0;
    uint64_t m_epoch = 0;
    uint64_t m_lines = 0;
};
