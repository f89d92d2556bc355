#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QFutureWatcher>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSerialPortInfo>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>

class HydSerialPortChecker;
class QThread;

/// Finds recorders on serial ports: lists the ports on the global thread pool and asks all that fit, side by
/// side on one worker thread, at each baud rate. The application owns it; all functions belong to the
/// scanner's thread, which needs an event loop. A slot that wants to be rid of the scanner calls
/// deleteLater().
///
/// A scan ends with scanComplete(), which also ends the checkers: nothing that they report afterwards, as a
/// second answer of a recorder, is heard. Intended: a port that can't be opened
/// (another program has it), and one where bytes come that are no answer, keep that from coming for ever;
/// cancelSearch() is the way out.
///
/// Cancelling stops no checker: what they find is still reported, in a later scan too. A scan that starts
/// while checkers of a cancelled one are left sends them back to the first rate, and a port that they are
/// still asking is asked by two (where the system doesn't keep the second one out). Whichever of the two
/// reports first takes the port from the scan, and ports that were left unanswered still count: so such a
/// scan may end early, or not until the old ports have answered. scanComplete() makes a clean start of it.
class NVXQTCOMMON_EXPORT HydSerialPortScanner : public QObject
{
    Q_OBJECT

public:
    explicit HydSerialPortScanner(QObject* parent = nullptr);
    explicit HydSerialPortScanner(const QList<uint32_t>& baudRates, QObject* parent = nullptr);
    /// Ends the worker thread with all that it asks, and waits for it.
    ~HydSerialPortScanner() override;

    /// In bit/s, tried in their order: 19200, 115200, 230400, 460800, 921600 at first.
    QList<uint32_t> baudRates() const { return m_baudRates; }
    /// For the scans that start from now on. Each rate once; see HydSerialPortChecker.
    void setBaudRates(const QList<uint32_t>& baudRates) { m_baudRates = baudRates; }
    bool isScanning() const { return m_isScanning; }
    /// The type that deviceFound() is told of; 0, as at first, for any.
    HydDeviceType searchDevType() const { return m_searchDevType; }
    void setSearchDevType(const HydDeviceType& type) { m_searchDevType = type; }

public Q_SLOTS:
    // Each starts a scan. During a scan they do nothing but log; without baud rates they emit scanComplete().

    /// Asks all ports.
    void scanPortsAll();
    /// Asks the ports whose USB vendor number is `vid`; ports without one have 0.
    void scanPortVid(uint16_t vid);
    /// Asks the ports whose names are plain decimal numbers from `from` to `to`. Intended: any other name,
    /// one with a letter prefix too, counts as 0.
    void scanComPortRange(uint16_t from, uint16_t to);
    /// Asks the ports of exactly this name.
    void scanPortName(QString name);
    /// Ends the scan for the caller: emits scanCancelled(). Stops no checker, nor a listing that runs.
    void cancelSearch();
    /// Asks these ports; none is scanComplete(). The scans call it with what they selected.
    void handlePortInfoList(QList<QSerialPortInfo> ports);

Q_SIGNALS:
    /// A recorder of the type searched answered on `port` at `baudRate` bit/s.
    void deviceFound(std::shared_ptr<HydDevice> spDev, QString port, uint32_t baudRate);
    /// To the checkers, each of which starts to ask.
    void startPortChecks();
    /// All ports reported, or there was none to ask. isScanning() is false by then.
    void scanComplete();
    void scanCancelled();

private:
    using Selection = std::function<bool(const QSerialPortInfo&)>;

    void scan(Selection isWanted);
    void addChecker(const QString& port);
    void handleScanComplete();
    void handleEnquireResponse(const std::shared_ptr<const HydEnquireCmd>& response, const QString& port,
                               uint32_t baudRate);
    void handleNoDeviceResponse(const QString& port);

    QList<uint32_t> m_baudRates{19200, 115200, 230400, 460800, 921600};
    QMap<QString, HydSerialPortChecker*> m_pending;
    /// All that scanComplete() will end, those that have answered too.
    QList<HydSerialPortChecker*> m_checkers;
    /// How often scanComplete() came.
    uint64_t m_ends = 0;
    bool m_isScanning = false;
    QFutureWatcher<QList<QSerialPortInfo>> m_watcher;
    QThread* m_worker;
    HydDeviceType m_searchDevType = DevTypeAny;
};
