#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTcpSocket>
#include <QTest>

/// The packaged server vsftpd on port 21 of an address of its own, anonymous users may do everything in the
/// folder "pub" of what it serves. It ends with this object. Lives on the thread that created it.
class VsftpdPeer
{
public:
    ~VsftpdPeer()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    /// Serves `directory`, where the folder "pub" is made, and waits until it listens. False when it doesn't.
    /// `directory` holds its configuration too, and no one but this user may be able to write to it.
    bool start(const QString& address, const QString& directory)
    {
        const QString configuration = directory + QStringLiteral("/vsftpd.conf");
        const QString served = directory + QStringLiteral("/served");
        if (!QDir().mkpath(served + QStringLiteral("/pub")))
            return false;
        QFile file(configuration);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write(
            "listen=YES\nbackground=NO\nanonymous_enable=YES\nlocal_enable=NO\nwrite_enable=YES\n"
            "anon_upload_enable=YES\nanon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
            "anon_world_readable_only=NO\nanon_umask=022\nrun_as_launching_user=YES\nseccomp_sandbox=NO\n"
            "one_process_model=NO\nmax_per_ip=0\nmax_clients=0\nxferlog_enable=NO\npasv_promiscuous=YES\n"
            "listen_address=");
        file.write(address.toUtf8() + "\nanon_root=" + served.toUtf8() +
                   "\nsecure_chroot_dir=" + served.toUtf8() + '\n');
        file.close();
        QFile::setPermissions(configuration, QFile::ReadOwner | QFile::WriteOwner);
        m_process.start(QStringLiteral("/usr/sbin/vsftpd"), {configuration});
        return QTest::qWaitFor(
            [&] {
                QTcpSocket probe;
                probe.connectToHost(address, 21);
                return m_process.state() != QProcess::NotRunning && probe.waitForConnected(1000);
            },
            20000);
    }
    QString errorText()
    {
        return m_process.errorString() + u' ' + QString::fromUtf8(m_process.readAll()) +
               QString::fromUtf8(m_process.readAllStandardError());
    }

private:
    QProcess m_process;
};
