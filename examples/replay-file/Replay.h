#pragma once

#include "replay-file/ReplayLog.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxDataFile.h"

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <optional>

/// What to play.
struct ReplayOrder
{
    QStringList files;
    ReplayFILEVelocity speed = ReplayNormal;
    QString directory; ///< of the files that are written again; none for an empty one
};

/// Plays files one after the other, each as a live stream. It prints what it does, and ends with finished().
class Replay : public QObject
{
    Q_OBJECT

public:
    /// Exit codes of the program.
    enum Outcome {
        Done = 0,
        WrongUse = 1,
        NotPlayed = 2,
        DiskError = 5,
    };

    explicit Replay(ReplayOrder order, QObject* parent = nullptr);
    ~Replay() override;

    void start();
    /// Ends early; the files are complete.
    void stop();

Q_SIGNALS:
    void finished(int outcome);

private:
    void playNext();
    template <class File> bool play(const QString& path);
    void connectFile();
    bool goesOnFromTheFileBefore() const;
    void takeData(const std::shared_ptr<HydStreamDataPayload>& data, const HydDeviceId& id);
    void endFile();
    void printProgress() const;
    void complain(Outcome outcome, const QString& sentence);
    void finish();

    ReplayOrder m_order;
    const FftParams m_fftParams = FFT_Params_WAV; ///< before any file has changed them
    std::unique_ptr<NvxDataFile> m_file;
    std::unique_ptr<ReplayLog> m_log;
    QTimer m_progress;
    QList<HydDeviceId> m_devicesBefore;
    qint64 m_endBefore = 0; ///< time of the last payload of the file before, seconds since the epoch
    qint64 m_payloads = 0;
    std::optional<double> m_power;
    Outcome m_outcome = Done;
    bool m_finished = false;
};
