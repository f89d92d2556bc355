#include "NvxQtSimulator/HttpRequestReader.h"

#include <QList>

std::optional<HttpRequest> HttpRequestReader::next()
{
    static const QByteArray kEnd = QByteArrayLiteral("\r\n\r\n");
    const qsizetype end = m_bytes.first(qMin(m_bytes.size(), kMaxHead)).indexOf(kEnd);
    if (m_isBroken || (end < 0 && m_bytes.size() < kMaxHead))
        return std::nullopt;
    const auto request = end < 0 ? std::nullopt : parse(m_bytes.first(end));
    m_isBroken = !request;
    m_bytes.remove(0, m_isBroken ? m_bytes.size() : end + kEnd.size());
    return request;
}

std::optional<HttpRequest> HttpRequestReader::parse(const QByteArray& head)
{
    QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> words = lines.takeFirst().trimmed().split(' ');
    if (words.size() != 3 || words[0].isEmpty() || words[1].isEmpty() || !words[2].startsWith("HTTP/1."))
        return std::nullopt;
    HttpRequest request{words[0], words[1], words[2] != "HTTP/1.0"};
    for (const QByteArray& line : lines) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.first(qMax<qsizetype>(colon, 0)).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed().toLower();
        const bool hasBody = (name == "content-length" && value != "0") || name == "transfer-encoding";
        if (hasBody || (name == "connection" && value == "close"))
            request.keepsAlive = false;
    }
    return request;
}
