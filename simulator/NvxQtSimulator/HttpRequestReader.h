#pragma once

#include <QByteArray>

#include <optional>

/// What stands in the head of one HTTP request.
struct HttpRequest
{
    QByteArray method;
    QByteArray target;      ///< byte for byte as it came
    bool keepsAlive = true; ///< the connection may serve another request
};

/// Finds the requests in the bytes of one connection. Bodies are not read: a request with one ends the
/// connection behind its reply.
class HttpRequestReader
{
public:
    /// Bytes of a head; what is longer is no request.
    static constexpr qsizetype kMaxHead = 16384;

    void add(const QByteArray& bytes) { m_bytes += bytes; }
    /// The next whole request; empty while there is none.
    std::optional<HttpRequest> next();
    /// True once what came can't be a request, for good.
    bool isBroken() const { return m_isBroken; }

private:
    std::optional<HttpRequest> parse(const QByteArray& head);

    QByteArray m_bytes;
    bool m_isBroken = false;
};
