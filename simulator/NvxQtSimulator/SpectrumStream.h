#pragma once

#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "NvxQtSimulator/SpectrumMaker.h"
#include "NvxQtSimulator/StreamSession.h"

#include <QElapsedTimer>

#include <optional>

/// The spectrum stream of one reader: spectra of the recorder's signal without a gap between them, at the
/// pace of the job setup that the stream began with. An event header comes ahead of the first spectrum of
/// each second; a spectrum's sample number is that of the first sample it covers, counted from its event. All
/// sample numbers are those of the spectrum's own rate.
class SpectrumStream : public StreamSession
{
    Q_OBJECT

public:
    SpectrumStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    void proceedPaced();
    void proceedUnpaced();
    bool isFinished() const;
    int64_t spectraDue() const;
    void sendNext();
    void sendHeader();
    void sendSpectrum();
    std::shared_ptr<HydEventKeyChunkV1> eventKey() const;

    HydJobSettings m_job;
    int64_t m_rate = 1;
    int64_t m_step = 1; ///< samples from one spectrum to the next
    std::optional<SpectrumMaker> m_maker;
    QElapsedTimer m_clock;
    int64_t m_hostStart = 0; ///< seconds since the epoch by the host's clock
    int64_t m_eventTime = 0;
    int64_t m_startSample = 0;
    int64_t m_spectra = 0; ///< made so far
    int64_t m_event = -1;  ///< second since the start that the last header was for
};
