#pragma once

#include "array-spectra/ChannelFiles.h"

#include "NvxQtCommon/array/ZcrDeviceController.h"
#include "NvxQtCommon/array/ZcrStreamAdapter.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QObject>
#include <QTimer>

#include <memory>

/// What to record.
struct ArrayOrder
{
    QHostAddress address;
    uint16_t serial = 600; ///< of the array controller
    int seconds = 10;      ///< from the first spectrum on
    int patienceMs = 5000; ///< to wait for an answer, or for spectra
    QString directory;
};

/// One run with an array controller, from its list of channels to the finished files. It prints what it does,
/// and ends with finished().
class ArrayRun : public QObject
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
        NoPorts = 6,
    };

    explicit ArrayRun(const ArrayOrder& order, QObject* parent = nullptr);
    ~ArrayRun() override;

    void start();
    /// Ends the recording early; the files are complete.
    void stop();

Q_SIGNALS:
    void finished(int outcome);

private:
    enum class Step { Channels, Settings, Spectra, Over };

    void takeChannels();
    void takeSettings();
    void startStream();
    void watchStream();
    void printChannels() const;
    void printProgress() const;
    void finish(Outcome outcome, const QString& complaint = {});

    ArrayOrder m_order;
    QNetworkAccessManager m_manager;
    std::shared_ptr<ZcrDevice> m_device;
    std::shared_ptr<ZcrDeviceController> m_controller;
    std::unique_ptr<ZcrStreamAdapter> m_stream;
    ChannelFiles m_files;
    QTimer m_timeout;
    QTimer m_watch;
    QElapsedTimer m_sinceStart; ///< valid from the first spectrum on
    QElapsedTimer m_sinceSpectrum;
    qint64 m_secondPrinted = 0;
    Step m_step = Step::Channels;
};
