#pragma once

#include "NvxQtSimulator/ArrayState.h"

#include <QByteArray>

class QJsonObject;

/// The CGI scripts of one simulated array controller: what each target of a request does, and its reply.
class ArrayCgi
{
public:
    struct Reply
    {
        int status = 200;
        QByteArray body;
    };

    /// `state` outlives this.
    explicit ArrayCgi(ArrayState* state) : m_state(state) {}

    /// Any bytes are a target. A job setup or a time that can't be read is refused with 400 and changes
    /// nothing, an unknown script with 404.
    Reply answer(const QByteArray& target);

private:
    Reply configuration(const QByteArray& query);
    Reply status();
    Reply operation(const QByteArray& query);
    bool takeSetup(const QJsonObject& setup);
    QByteArray identity();

    ArrayState* m_state;
};
