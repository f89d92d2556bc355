#pragma once

#include "NvxQtCommon/control/NvxDeviceController.h"
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "NvxQtCommon/logging/NvxEpochLogger.h"
#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"

#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

/// What to do with the triggers of a recorder.
struct TriggerOrder
{
    QHostAddress address;
    quint16 epochPort = 51004;
    /// The triggers that the recorder shall have; none of them clears its list. Not given: they stay.
    std::optional<std::vector<std::shared_ptr<HydTrigger>>> wish;
    int watchSeconds = 0; ///< 0 watches nothing
    int patienceMs = 5000;
    QString directory; ///< of the diary
};

/// Reads the triggers of one recorder, changes them, and keeps a diary of what they do. It prints what it
/// does, and ends with finished().
class TriggerWork : public QObject
{
    Q_OBJECT

public:
    /// Exit codes of the program.
    enum Outcome {
        Done = 0,
        WrongUse = 1,
        NothingFound = 2,
        Refused = 3,
        DiskError = 5,
    };

    explicit TriggerWork(const TriggerOrder& order, QObject* parent = nullptr);
    ~TriggerWork() override;

    void start();
    /// Ends the watching early.
    void stop();

Q_SIGNALS:
    void finished(int outcome);

private:
    void enquire();
    void openDevice(std::shared_ptr<HydDevice> device);
    void takeList();
    void openEpochs();
    void setTriggers();
    void watch();
    void note(const SActiveTrigger& occurrence);
    bool isWishMet() const;
    void printList(const QString& title) const;
    void expect(const QString& complaint, int milliseconds);
    void finish(Outcome outcome, const QString& complaint = {});

    TriggerOrder m_order;
    HydMarcoAdapter m_marco;
    std::shared_ptr<NvxDeviceController> m_controller;
    std::unique_ptr<HydEpochStreamAdapter> m_epochs;
    std::unique_ptr<NvxEpochLogger> m_diary;
    QString m_diaryPath;
    QTimer m_timeout;
    QString m_complaint;
    int m_enquiries = 0;
    bool m_listKnown = false;
    bool m_epochsOpen = false;
    bool m_wishSent = false;
    bool m_finished = false;
};
