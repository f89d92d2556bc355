#pragma once

#include "NvxQtSimulator/StreamSession.h"

#include <optional>

/// The wave stream of one reader: an event header each second of samples, then its blocks. A block's sample
/// number is its position in the event; its key is that of the event. The first event begins with the sample
/// that is taken when the start message arrives.
class WaveStream : public StreamSession
{
    Q_OBJECT

public:
    WaveStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    struct Event
    {
        uint32_t time = 0;
        int64_t sequence = 0;
        int64_t samples = 0; ///< of each channel
    };

    void proceedPaced();
    void proceedUnpaced();
    bool isFinished() const;
    int64_t samplesDue() const;
    void restartPace();
    void beginEvent(int64_t time, int64_t sequence);
    void nextEvent();
    void sendHeader();
    int64_t nextBlockSize() const;
    void sendBlock(bool drop);
    QByteArray blockFrame(int64_t position, int64_t count, std::optional<int64_t> oversize) const;
    void applyBlockFaults();

    Event m_event;
    int64_t m_position = 0; ///< of the next block in the event
    SampleFormat m_format;
    uint32_t m_rate = 1;
    std::optional<SignalSource> m_source;
    int64_t m_clockOffset = 0;
    uint64_t m_events = 0;
    QElapsedTimer m_paceClock;
    int64_t m_paceSamples = 0; ///< made since the pace clock started
};
