#pragma once

#include "record-waves/SideRecording.h"
#include "shared/FileReport.h"

#include "NvxQtCommon/control/NvxDeviceController.h"
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"
#include "NvxQtCommon/streaming/NvxStreamMonitor.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <optional>

/// What to record.
struct RecordingOrder
{
    QHostAddress address;
    quint16 wavePort = 51001;
    SideOrder side;
    int seconds = 10;
    int fileSeconds = 60;  ///< a wave file ends at each whole multiple of it
    int patienceMs = 5000; ///< to wait for an answer, or for samples
    QString directory;
};

/// One recording from finding the recorder to the finished files. It prints what it does, and ends with
/// finished().
class Recording : public QObject
{
    Q_OBJECT

public:
    /// Exit codes of the program.
    enum Outcome {
        Done = 0,
        WrongUse = 1,
        NothingFound = 2,
        Refused = 3,
        NoData = 4,
        DiskError = 5,
    };

    explicit Recording(const RecordingOrder& order, QObject* parent = nullptr);
    ~Recording() override;

    void start();
    /// Ends the recording early; the files are complete.
    void stop();

Q_SIGNALS:
    void finished(int outcome);

private:
    void enquire();
    void openDevice(std::shared_ptr<HydDevice> device);
    void noteAnswer(bool& answer);
    void printDevice() const;
    void startStream();
    void watchStream();
    void noteScale(const HydStreamEventHeaderPayload& header);
    void printProgress(const NvxStreamStats& stats);
    void finish(Outcome outcome, const QString& complaint = {});
    void printFiles() const;

    RecordingOrder m_order;
    HydMarcoAdapter m_marco;
    std::shared_ptr<NvxDeviceController> m_controller;
    std::unique_ptr<HydStreamAdapter> m_stream;
    std::unique_ptr<NvxWavLogger> m_logger;
    std::unique_ptr<SideRecording> m_side;
    NvxStreamMonitor m_monitor;
    QTimer m_timeout;
    QTimer m_watch;
    QElapsedTimer m_sinceStart;
    int m_enquiries = 0;
    bool m_identityKnown = false;
    bool m_setupKnown = false;
    bool m_clockKnown = false;
    bool m_finished = false;
    uint64_t m_printedBlocks = 0;
    QStringList m_files;
    std::optional<SoundScale> m_scale;
};
