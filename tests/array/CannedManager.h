#pragma once

#include "tests/array/CannedReply.h"

#include <QMap>
#include <QNetworkAccessManager>
#include <QUrl>

/// Answers each request by the name of its script, from the event loop, and sends nothing anywhere.
class CannedManager : public QNetworkAccessManager
{
public:
    CannedManager() { setAutoDeleteReplies(true); }

    /// Bodies by the names of scripts; of others they are empty.
    QMap<QString, QByteArray> bodies;
    /// What was asked for, without "http://", in its order.
    QStringList asked;
    /// Replies that are still to come.
    int open = 0;

protected:
    QNetworkReply* createRequest(Operation, const QNetworkRequest& request, QIODevice*) override
    {
        asked << request.url().toString(QUrl::RemoveScheme).mid(2);
        ++open;
        auto* reply = new CannedReply(bodies.value(request.url().fileName()));
        reply->setParent(this);
        QMetaObject::invokeMethod(
            reply,
            [this, reply] {
                --open;
                Q_EMIT reply->finished();
            },
            Qt::QueuedConnection);
        return reply;
    }
};
