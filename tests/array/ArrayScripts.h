#pragma once

#include "tests/support/PythonPeer.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>

/// The HTTP server of an array controller on an address of its own.
class ArrayScripts : public PythonPeer
{
public:
    ArrayScripts() : PythonPeer(QStringLiteral("array_cgi.py")) {}

    bool listen(const QString& address) { return start({QStringLiteral("--address"), address}); }
    /// Orders the replies of one script, and waits until the order holds.
    bool order(const QString& script, QJsonObject order)
    {
        const qsizetype before = lines(QStringLiteral("ordered")).size();
        order.insert(QStringLiteral("script"), script);
        command(QJsonDocument(order).toJson(QJsonDocument::Compact));
        return waitForLines(QStringLiteral("ordered"), before + 1);
    }
    /// The targets of all requests so far.
    QStringList targets()
    {
        QStringList found;
        for (const QStringList& words : lines(QStringLiteral("get")))
            found << words.join(u' ');
        return found;
    }
};

/// Why this user can't have port 80 of an address; empty where he can.
inline QString whyNoHttpPort(const QString& address)
{
    QTcpServer probe;
    return probe.listen(QHostAddress(address), 80) ? QString() : probe.errorString();
}
