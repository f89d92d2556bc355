#pragma once

#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/transfer/FtpPeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

inline bool makeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

/// A packaged server on port 21 of an address that a test program has to itself, a folder that it serves, and
/// one for what is fetched. Both are new for each test function.
class FtpCase : public NvxTestCase
{
    Q_OBJECT

protected:
    explicit FtpCase(const QString& address) : m_address(address) {}

    QString remote(const QString& name) const { return m_server->filePath(name); }
    QString local(const QString& name) const { return m_client->filePath(name); }
    void serve(const QStringList& options = {})
    {
        m_peer = std::make_unique<FtpPeer>();
        QVERIFY2(m_peer->start(m_address, m_server->path(), options), qPrintable(m_peer->errorText()));
    }
    void makeFolders()
    {
        failOnUnexpectedWarnings();
        m_peer.reset();
        m_server = std::make_unique<QTemporaryDir>();
        m_client = std::make_unique<QTemporaryDir>();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QTemporaryDir directory;
        FtpPeer peer;
        if (!peer.start(m_address, directory.path()))
            QSKIP(qPrintable("no FTP server on port 21: " + peer.errorText()));
    }
    void init() { makeFolders(); }

protected:
    const QString m_address;
    std::unique_ptr<QTemporaryDir> m_server;
    std::unique_ptr<QTemporaryDir> m_client;
    std::unique_ptr<FtpPeer> m_peer;
};

/// Runs a test class in a network of its own.
template <typename Test> int runFtpTest(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}
