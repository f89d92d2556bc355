#pragma once

#include "tests/support/SourceFile.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

/// A packaged FTP server on any port that serves a folder of its own to anonymous users, who may do all in
/// it. It ends with this object. Lives on the thread that created it.
class LocalFtpServer
{
public:
    enum Kind { Vsftpd, Pyftpdlib };

    ~LocalFtpServer()
    {
        m_process.closeWriteChannel();
        m_process.terminate();
        if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }

    /// Waits until it listens; false with a text in errorText() where it doesn't.
    bool start(Kind kind, const QHostAddress& address)
    {
        m_address = address;
        if (!m_folder.isValid() || !QDir(m_folder.path()).mkdir(QStringLiteral("root")))
            return false;
        return kind == Vsftpd ? startVsftpd() : startPyftpdlib();
    }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    QString host() const { return m_address.toString(); }
    quint16 port() const { return m_port; }
    /// Where the root of the served folder lies.
    QString root() const { return m_folder.filePath(QStringLiteral("root")); }
    QString url(const QString& path) const
    {
        const bool isIpv6 = m_address.protocol() == QAbstractSocket::IPv6Protocol;
        const QString authority = isIpv6 ? u'[' + host() + u']' : host();
        return QStringLiteral("ftp://%1:%2/%3")
            .arg(authority, QString::number(m_port),
                 QString::fromLatin1(QUrl::toPercentEncoding(path, QByteArrayLiteral("/"))));
    }
    QString errorText()
    {
        return m_process.errorString() + u' ' + QString::fromUtf8(m_process.readAllStandardError()) +
               QString::fromUtf8(m_process.readAllStandardOutput());
    }

private:
    bool startPyftpdlib()
    {
        m_process.start(QStringLiteral("/usr/bin/python3"),
                        {QStringLiteral("-B"), sourceFile(QStringLiteral("tests/transfer/ftp_peer.py")),
                         host(), root(), QStringLiteral("--port"), QStringLiteral("0")});
        // "port N" and "ready".
        const auto hasBoth = [this] { return m_process.peek(100).count('\n') >= 2; };
        const bool isOver =
            QTest::qWaitFor([&] { return hasBoth() || m_process.state() == QProcess::NotRunning; }, 20000);
        if (!isOver || !hasBoth())
            return false;
        m_port = QString::fromUtf8(m_process.readLine()).section(u' ', 1).trimmed().toUShort();
        return m_port != 0;
    }

    bool startVsftpd()
    {
        // It can't choose a port by itself: one that was free a moment ago, on an address of ours.
        QTcpServer probe;
        if (!probe.listen(m_address))
            return false;
        m_port = probe.serverPort();
        probe.close();
        const bool isIpv6 = m_address.protocol() == QAbstractSocket::IPv6Protocol;
        QDir(m_folder.path()).mkdir(QStringLiteral("empty"));
        QFile config(m_folder.filePath(QStringLiteral("vsftpd.conf")));
        if (!config.open(QIODevice::WriteOnly))
            return false;
        const QString family = isIpv6 ? QStringLiteral("listen_ipv6=YES\nlisten_address6=%1\n")
                                      : QStringLiteral("listen=YES\nlisten_ipv6=NO\nlisten_address=%1\n");
        config.write((family.arg(host()) +
                      QStringLiteral("listen_port=%1\nanon_root=%2\nsecure_chroot_dir=%3\n")
                          .arg(QString::number(m_port), root(), m_folder.filePath(QStringLiteral("empty"))))
                         .toUtf8());
        config.write(
            "background=NO\nrun_as_launching_user=YES\nseccomp_sandbox=NO\nisolate=NO\nisolate_network=NO\n"
            "anonymous_enable=YES\nlocal_enable=NO\nwrite_enable=YES\nanon_upload_enable=YES\n"
            "anon_mkdir_write_enable=YES\nanon_other_write_enable=YES\nanon_umask=022\n"
            "anon_world_readable_only=NO\nallow_writeable_chroot=YES\nconnect_from_port_20=NO\n"
            "port_promiscuous=YES\nxferlog_enable=NO\n");
        config.close();
        m_process.start(QStringLiteral("/usr/sbin/vsftpd"), {config.fileName()});
        return m_process.waitForStarted() &&
               QTest::qWaitFor(
                   [this] {
                       QTcpSocket socket;
                       socket.connectToHost(m_address, m_port);
                       return m_process.state() == QProcess::NotRunning || socket.waitForConnected(100);
                   },
                   20000) &&
               m_process.state() == QProcess::Running;
    }

    QTemporaryDir m_folder;
    QHostAddress m_address;
    QProcess m_process;
    quint16 m_port = 0;
};
