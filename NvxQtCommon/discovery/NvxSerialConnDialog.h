#pragma once

#include "NvxQtCommon/control/MetaTypes.h"

#include <QDialog>
#include <QMap>
#include <QString>

#include <cstdint>
#include <memory>

class HydSerialPortScanner;
class QAbstractButton;
class QPushButton;

namespace Ui {
class NvxSerialConnDialog;
}

/// The dialog that looks for recorders on serial ports, at 115200 bit/s, lists those found and hands the
/// chosen one to the application. The application owns it, shows it modally or not, and starts the scan:
/// showing doesn't. Lives on the thread of the windows.
///
/// Only ports whose names are plain numbers are looked at. What was found stays known for as long as the
/// dialog lives: a rescan clears the list alone. So "Finished scanning." may stand under an empty list.
class NVXQTCOMMON_EXPORT NvxSerialConnDialog : public QDialog
{
    Q_OBJECT

public:
    explicit NvxSerialConnDialog(QWidget* parent = nullptr);
    /// Ends a scan that runs, and waits for it.
    ~NvxSerialConnDialog() override;

    /// The type that is listed; 0, as at first, for any.
    HydDeviceType searchDevType() const;
    void setSearchDevType(const HydDeviceType& type);

    /// Looks at the ports from 2 to 99. Leaves the list as it is; does nothing but log during a scan.
    void startScan();

public Q_SLOTS:
    /// By the role of the button: accept takes the selected recorder, reset scans anew, any other rejects.
    void onButtonBoxClicked(QAbstractButton* btnClicked);
    /// Accepts the dialog and emits deviceAccepted(), if a recorder was found on `port`; also one that is no
    /// more listed.
    void acceptSelected(QString port);
    /// Also what Escape and the window's close button do: ends the scan.
    void reject() override;

Q_SIGNALS:
    /// The recorder chosen, its port, and the rate in bit/s at which it answered. The dialog is closed by
    /// then and may be deleted.
    void deviceAccepted(std::shared_ptr<NvxDevice> device, QString portName, uint32_t baud);

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    void addDevice(const std::shared_ptr<HydDevice>& device, const QString& port, uint32_t baudRate);
    void showOutcome();
    void checkPort();
    void takeSelected();

    std::unique_ptr<Ui::NvxSerialConnDialog> m_form;
    QPushButton* m_connectButton = nullptr;
    QMap<QString, std::shared_ptr<HydDevice>> m_devices;
    QMap<QString, uint32_t> m_baudRates;
    std::unique_ptr<HydSerialPortScanner> m_scanner;
};
