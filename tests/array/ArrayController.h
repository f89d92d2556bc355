#pragma once

#include "NvxQtCommon/array/ZcrDeviceController.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "tests/support/Patience.h"

#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

/// A controller of the array controller 600 and what it told, in its order.
struct ArrayController
{
    explicit ArrayController(uint32_t address)
    {
        device->setSerial(kSerial);
        device->setNetHostInfo(NvxNetHostInfo(address));
        adapter.setNetHostInfo(NvxNetHostInfo(address));
        adapter.setSerial(kSerial);
        using C = ZcrDeviceController;
        on(&C::signalZcrTime,
           [](int serial, long long time) { return QStringLiteral("time %1 %2").arg(serial).arg(time); });
        on(&C::signalResetZCR,
           [](const HydDeviceId& id) { return QStringLiteral("reset %1").arg(id.serialNo()); });
        on(&C::signalZCRnoArray, [this](const std::shared_ptr<NvxDevice>& told) {
            return QStringLiteral("no array") + notOurs(told.get());
        });
        on(&C::signalZCRErrorStream, [this](const std::shared_ptr<NvxDevice>& told) {
            return QStringLiteral("error stream") + notOurs(told.get());
        });
        on(&C::signalZCRSetConfigRead, [](HydJobSettings& settings, int serial) {
            return QStringLiteral("settings %1 %2").arg(serial).arg(settings.wavGain());
        });
        on(&C::signalZCRArrayRead, [](std::vector<HydDeviceId>& ids, int serial) {
            return QStringLiteral("channels %1 %2").arg(serial).arg(ids.size());
        });
        on(&C::jobSettingsChanged, [this](const std::shared_ptr<NvxDevice>& told) {
            return QStringLiteral("settings changed") + notOurs(told.get());
        });
        on(&C::enquireResponse, [this](const NvxDevice& told, bool isUpdateNeeded) {
            return QStringLiteral("enquired %1").arg(isUpdateNeeded) + notOurs(&told);
        });
        on(&C::timeChanged, [this](const NvxDevice& told) {
            return QStringLiteral("own time %1").arg(told.timeUtc()) + notOurs(&told);
        });
        on(&C::channelOpen, [](const HydDeviceId& id, HydChannel channel) {
            return QStringLiteral("open %1 %2").arg(id.serialNo()).arg(channel);
        });
        on(&C::channelClosed, [](const HydDeviceId& id, HydChannel channel) {
            return QStringLiteral("closed %1 %2").arg(id.serialNo()).arg(channel);
        });
        on(&C::adapterCmdReady, [] { return QStringLiteral("command"); });
    }

    /// Channels that the adapter read of a file, with these sensitivities.
    void listChannels(const std::vector<float>& sensitivities)
    {
        uint16_t serial = 10;
        for (const float sensitivity : sensitivities) {
            adapter.devIdList().emplace_back(DevTypeSkiff, ++serial);
            adapter.devIdList().back().setHostDevNo(kSerial);
            adapter.hydDeviceList().push_back(
                std::make_shared<SkiffDevice>(serial, DevTypeSkiff, NvxNetHostInfo(), JobTagMap()));
            adapter.hydDeviceList().back()->setSensitivity(sensitivity);
        }
    }
    /// What it told since the last call.
    QStringList told() { return std::exchange(m_told, {}); }

    static constexpr uint16_t kSerial = 600;

    std::shared_ptr<ZcrDevice> device = std::make_shared<ZcrDevice>(DevTypeZcr);
    ZcrDeviceController controller{device, ConnTcp};
    HydZcrCommandAdapter& adapter = *controller.adapter();

private:
    template <class Signal, class Text> void on(Signal signal, Text text)
    {
        QObject::connect(&controller, signal, &m_context,
                         [this, text](auto&&... values) { m_told << textOf(text, values...); });
    }
    template <class Text, class... Values> static QString textOf(const Text& text, Values&... values)
    {
        if constexpr (std::is_invocable_v<Text, Values&...>)
            return text(values...);
        else
            return text();
    }
    QString notOurs(const NvxDevice* told) const
    {
        return told == device.get() ? QString() : QStringLiteral(" of another record");
    }

    QStringList m_told;
    QObject m_context;
};

/// Takes web socket connections of one address, and answers none.
class MuteWebSocket
{
public:
    explicit MuteWebSocket(uint32_t address)
    {
        if (!m_server.listen(QHostAddress(address), CZCRWebSocket::kPort))
            qFatal("no port to listen on");
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            QObject::connect(m_server.nextPendingConnection(), &QIODevice::readyRead, &m_server,
                             [this] { ++m_handshakes; });
        });
    }
    /// Waits for the handshake of a connection more than before: Qt warns where one is closed ahead of it.
    bool waitForHandshake()
    {
        ++m_expected;
        return QTest::qWaitFor([this] { return m_handshakes >= m_expected; }, kPatienceMs);
    }

private:
    QTcpServer m_server;
    int m_handshakes = 0;
    int m_expected = 0;
};

/// One whose web socket connects to nobody who answers.
struct MuteArrayController : ArrayController
{
    explicit MuteArrayController(uint32_t address) : ArrayController(address), socket(address) {}

    MuteWebSocket socket;
};

/// What a report of the whole list tells.
inline QStringList wholeReport()
{
    return {QStringLiteral("settings changed"), QStringLiteral("enquired 1")};
}
