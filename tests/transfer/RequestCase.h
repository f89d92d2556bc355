#pragma once

#include "NvxQtCommon/transfer/NvxFtpDownloadRequest.h"
#include "tests/transfer/FtpCase.h"

#include <QStringList>

/// Requests to the packaged server, which has files in "Data", and what they report.
class RequestCase : public FtpCase
{
    Q_OBJECT

protected:
    using FtpCase::FtpCase;
    using Request = NvxFtpDownloadRequest;

    std::unique_ptr<Request> makeRequest(const QString& name,
                                         Request::WorkRegime regime = Request::DownloadWork,
                                         const QString& localName = {})
    {
        const NvxNetHostInfo host(NvxIpAddr(m_address.toStdString()).toInt());
        auto request = std::make_unique<Request>(host, name, QStringLiteral("Data"), m_client->path(),
                                                 localName, QStringLiteral("a date"), 1000);
        request->setWorkRegime(regime);
        const int32_t id = request->requestId();
        connect(request.get(), &Request::failed, this, [this, id](int32_t of, const QString& text) {
            m_told << QStringLiteral("failed %1").arg(text);
            QCOMPARE(of, id);
        });
        connect(request.get(), &Request::complete, this, [this, id](int32_t of, bool error) {
            m_told << (error ? QStringLiteral("complete with error") : QStringLiteral("complete"));
            QCOMPARE(of, id);
        });
        return request;
    }
    /// A file that the server has in "Data".
    bool offer(const QString& name, const QByteArray& bytes)
    {
        return QDir(m_server->path()).mkpath(QStringLiteral("Data")) &&
               makeFile(remote("Data/" + name), bytes);
    }
    /// True when the request's connection has ended all of its commands, with or without an error.
    static bool waitForDone(Request& request, bool error)
    {
        QSignalSpy done(&request.ftp(), &QFtp::done);
        return done.wait(20000) && done[0][0].toBool() == error;
    }

private Q_SLOTS:
    void init()
    {
        makeFolders();
        m_told.clear();
    }

protected:
    /// What the requests told, in order.
    QStringList m_told;
};
