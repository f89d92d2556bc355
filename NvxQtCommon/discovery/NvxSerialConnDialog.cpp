#include "NvxQtCommon/discovery/NvxSerialConnDialog.h"

#include "NvxQtCommon/discovery/HydSerialPortScanner.h"
#include "ui_NvxSerialConnDialog.h"

#include <QDebug>
#include <QPointer>
#include <QPushButton>

namespace {

constexpr uint32_t kDialogBaudRate = 115200;
constexpr uint16_t kFirstPort = 2;
constexpr uint16_t kLastPort = 99;

} // namespace

NvxSerialConnDialog::NvxSerialConnDialog(QWidget* parent)
    : QDialog(parent), m_form(std::make_unique<Ui::NvxSerialConnDialog>()),
      m_scanner(std::make_unique<HydSerialPortScanner>())
{
    m_form->setupUi(this);
    setWindowTitle(tr("Connect to Recorder"));
    m_connectButton = m_form->buttonBox->addButton(tr("Connect"), QDialogButtonBox::AcceptRole);
    m_connectButton->setDefault(true);
    m_form->buttonBox->addButton(tr("Scan Ports"), QDialogButtonBox::ResetRole);
    m_form->lblMessage->setText(tr("No Devices."));
    m_form->sbComPort->installEventFilter(this);

    connect(m_scanner.get(), &HydSerialPortScanner::deviceFound, this, &NvxSerialConnDialog::addDevice);
    connect(m_scanner.get(), &HydSerialPortScanner::scanComplete, this, &NvxSerialConnDialog::showOutcome);
    connect(m_form->btnManualConnect, &QPushButton::clicked, this, &NvxSerialConnDialog::checkPort);
    connect(m_form->lwDevices, &QListWidget::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.isValid())
            acceptSelected(index.data(Qt::UserRole).toString());
    });
    connect(m_form->buttonBox, &QDialogButtonBox::clicked, this, &NvxSerialConnDialog::onButtonBoxClicked);
    m_scanner->setBaudRates({kDialogBaudRate});
}

NvxSerialConnDialog::~NvxSerialConnDialog() = default;

HydDeviceType NvxSerialConnDialog::searchDevType() const
{
    return m_scanner->searchDevType();
}

void NvxSerialConnDialog::setSearchDevType(const HydDeviceType& type)
{
    m_scanner->setSearchDevType(type);
}

void NvxSerialConnDialog::startScan()
{
    m_form->lblMessage->setText(tr("Scanning ports..."));
    m_scanner->scanComPortRange(kFirstPort, kLastPort);
}

void NvxSerialConnDialog::addDevice(const std::shared_ptr<HydDevice>& device, const QString& port,
                                    uint32_t baudRate)
{
    m_devices[port] = device;
    m_baudRates[port] = baudRate;
    auto* item = new QListWidgetItem(QString::fromStdString(device->friendlyText()), m_form->lwDevices);
    item->setData(Qt::UserRole, port);
}

void NvxSerialConnDialog::showOutcome()
{
    m_form->lblMessage->setText(m_devices.isEmpty() ? tr("No Devices Found!") : tr("Finished scanning."));
}

void NvxSerialConnDialog::checkPort()
{
    const int number = m_form->sbComPort->value();
    m_form->lblMessage->setText(tr("Connecting to COM") + QString::number(number));
    m_form->lwDevices->clear();
    if (m_scanner->isScanning())
        m_scanner->cancelSearch();
    m_scanner->scanComPortRange(static_cast<uint16_t>(number), static_cast<uint16_t>(number));
}

void NvxSerialConnDialog::onButtonBoxClicked(QAbstractButton* btnClicked)
{
    switch (m_form->buttonBox->buttonRole(btnClicked)) {
    case QDialogButtonBox::AcceptRole:
        qDebug() << "Connect Clicked!";
        takeSelected();
        break;
    case QDialogButtonBox::ResetRole:
        qDebug() << "Rescan Clicked!";
        if (!m_scanner->isScanning()) {
            m_form->lwDevices->clear();
            startScan();
        }
        break;
    default:
        qDebug() << "Cancelled!";
        m_scanner->cancelSearch();
        reject();
        break;
    }
}

void NvxSerialConnDialog::takeSelected()
{
    const QListWidgetItem* current = m_form->lwDevices->currentItem();
    if (current != nullptr && !m_form->lwDevices->selectedItems().isEmpty())
        acceptSelected(current->data(Qt::UserRole).toString());
}

void NvxSerialConnDialog::acceptSelected(QString port)
{
    const std::shared_ptr<HydDevice> device = m_devices.value(port);
    if (!device || !m_baudRates.contains(port))
        return;
    const uint32_t baudRate = m_baudRates.value(port);
    const QPointer<NvxSerialConnDialog> self(this);
    m_scanner->cancelSearch();
    accept();
    if (self)
        Q_EMIT deviceAccepted(device, port, baudRate);
}

void NvxSerialConnDialog::reject()
{
    if (m_scanner->isScanning())
        m_scanner->cancelSearch();
    QDialog::reject();
}

void NvxSerialConnDialog::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
}

/// Enter in the number field checks the port; everywhere else it connects, but on a button.
bool NvxSerialConnDialog::eventFilter(QObject* object, QEvent* event)
{
    if (object == m_form->sbComPort) {
        if (event->type() == QEvent::FocusIn)
            m_form->btnManualConnect->setDefault(true);
        else if (event->type() == QEvent::FocusOut)
            m_connectButton->setDefault(true);
    }
    return QDialog::eventFilter(object, event);
}
