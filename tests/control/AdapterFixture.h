#pragma once

#include "ControlPeer.h"

#include "NvxQtCommon/control/HydCommandAdapter.h"
#include "tests/support/LogSpy.h"
#include "tests/support/Patience.h"

#include <QSerialPort>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTimer>

#include <memory>
#include <vector>

/// An adapter and the recorder at the other end, both on the test's thread, with everything that the adapter
/// said.
class AdapterFixture
{
public:
    explicit AdapterFixture(const QString& address, HydConnectionType connType = ConnTcp)
        : peer(address), owned(std::make_unique<HydCommandAdapter>(connType)), adapter(*owned),
          opened(owned.get(), &HydCommandAdapter::connectionOpen),
          closed(owned.get(), &HydCommandAdapter::connectionClosed),
          errors(owned.get(), &HydCommandAdapter::error),
          texts(owned.get(), &HydCommandAdapter::signalErrorResponse),
          socket(owned->findChild<QTcpSocket*>()), port(owned->findChild<QSerialPort*>()),
          scanTimer(owned->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly))
    {
        owned->setIpAddr(peer.ipAddr());
        QObject::connect(owned.get(), &HydCommandAdapter::commandResponse, owned.get(),
                         [this](std::shared_ptr<const HydControlMsgPayload> response) {
                             responses.push_back(response);
                             letters += static_cast<char>(response->msgType());
                         });
    }

    /// The adapter goes first: its end is heard.
    ~AdapterFixture() { owned.reset(); }

    /// Both ends connected.
    bool open()
    {
        if (!peer.listen())
            return false;
        adapter.openConnection();
        return QTest::qWaitFor([this] { return adapter.isConnected() && peer.isConnected(); }, kPatienceMs);
    }

    /// Lets the adapter have exactly these bytes in one read. False when they don't arrive.
    bool deliver(const QByteArray& bytes)
    {
        const auto before = socket->bytesAvailable();
        socket->blockSignals(true);
        peer.send(bytes);
        const bool arrived =
            QTest::qWaitFor([&] { return socket->bytesAvailable() >= before + bytes.size(); }, kPatienceMs);
        socket->blockSignals(false);
        return arrived && QMetaObject::invokeMethod(&adapter, "readStream", Qt::DirectConnection);
    }

    /// The error numbers so far, in their order.
    std::vector<std::pair<int, int>> errorList() const
    {
        std::vector<std::pair<int, int>> list;
        for (const auto& arguments : errors)
            list.emplace_back(arguments[0].value<HydControlError>(), arguments[1].toInt());
        return list;
    }
    qsizetype errorCount(HydControlError code) const
    {
        const auto list = errorList();
        return std::count_if(list.begin(), list.end(), [code](const auto& e) { return e.first == code; });
    }
    QStringList textList() const
    {
        QStringList list;
        for (const auto& arguments : texts)
            list << QString::fromStdString(arguments[0].value<std::string>());
        return list;
    }
    /// Forgets what was said so far.
    void forget()
    {
        opened.clear();
        closed.clear();
        errors.clear();
        texts.clear();
        responses.clear();
        letters.clear();
    }

    ControlPeer peer;
    std::unique_ptr<HydCommandAdapter> owned;
    HydCommandAdapter& adapter;
    QSignalSpy opened;
    QSignalSpy closed;
    QSignalSpy errors;
    QSignalSpy texts;
    QTcpSocket* socket;
    QSerialPort* port;
    QTimer* scanTimer;
    std::vector<std::shared_ptr<const HydControlMsgPayload>> responses;
    QByteArray letters; ///< of the responses
};
