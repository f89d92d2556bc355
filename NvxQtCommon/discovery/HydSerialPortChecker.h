#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <memory>

class HydCommandAdapter;

/// Asks one serial port for a recorder, at one baud rate after the other until it is answered: two seconds
/// for each rate, and the port stays open through all of them. A scanner makes one for each port and moves it
/// to its worker thread; without a scanner it is owned by whoever made it. All functions belong to the
/// checker's thread, and who wants to be rid of it in one of its signals calls deleteLater().
///
/// Intended, and the same with a scanner: a port that can't be opened, and one where bytes come that are no
/// answer, report nothing at all.
class NVXQTCOMMON_EXPORT HydSerialPortChecker : public QObject
{
    Q_OBJECT

public:
    /// From an enquiry's departure on.
    static constexpr int kReplyTimeoutMs = 2000;
    /// For an enquiry to leave.
    static constexpr int kWriteTimeoutMs = 1000;

    /// `port` is a name as QSerialPortInfo gives it, or a path. `baudRates` in bit/s, each once: one that the
    /// list holds twice leads back to where it stands first, for ever. Rates behind the first that the port
    /// refuses are passed over without an enquiry. Tells the name on standard output.
    HydSerialPortChecker(QString port, QList<uint32_t> baudRates, QObject* parent = nullptr);
    /// Closes the port.
    ~HydSerialPortChecker() override;

public Q_SLOTS:
    /// Opens the port at the first rate and starts to ask. On a port that is open already it only goes back
    /// to the first rate, which is then passed over at the next timeout without an enquiry.
    void enquireAllRates();

Q_SIGNALS:
    /// A recorder answered at `baud` bit/s. The port is closed.
    void enquireResponse(std::shared_ptr<const HydEnquireCmd> response, QString port, uint32_t baud);
    /// Nothing answered at any rate. The port is closed next.
    void noDeviceResponse(QString port);

private:
    void handleOpen();
    void handleWritten();
    void handleResponse(const std::shared_ptr<const HydControlMsgPayload>& payload);
    void tryNextRate();
    bool setNextRate();
    void enquire();

    HydCommandAdapter* m_adapter;
    QString m_port;
    QList<uint32_t> m_baudRates;
    /// The reply timer goes with the first answer; the adapter may still report afterwards.
    QPointer<QTimer> m_writeTimer;
    QPointer<QTimer> m_replyTimer;
};
