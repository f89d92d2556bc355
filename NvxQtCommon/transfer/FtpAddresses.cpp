#include "NvxQtCommon/transfer/FtpAddresses.h"

#include <array>

namespace {

constexpr qsizetype kNumbers = 6;
constexpr int kMaxOctet = 255;

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

/// Of the digits at the front, which are taken off; a number too large for an octet is -1.
int takeOctet(QStringView& text)
{
    int value = 0;
    while (!text.isEmpty() && isDigit(text.front())) {
        if (value >= 0)
            value = value * 10 + (text.front().unicode() - u'0');
        if (value > kMaxOctet)
            value = -1;
        text = text.mid(1);
    }
    return value;
}

} // namespace

namespace FtpAddresses {

std::optional<Endpoint> passive(QStringView text)
{
    std::array<int, kNumbers> numbers{};
    size_t count = 0;
    while (!text.isEmpty() && count < numbers.size()) {
        if (!isDigit(text.front())) {
            text = text.mid(1);
            continue;
        }
        numbers[count++] = takeOctet(text);
        if (count == numbers.size())
            break;
        if (text.size() >= 2 && text[0] == u',' && isDigit(text[1]))
            text = text.mid(1);
        else
            count = 0;
    }
    quint32 address = 0;
    if (count < numbers.size())
        return {};
    for (const int number : numbers) {
        if (number < 0)
            return {};
    }
    for (size_t i = 0; i < 4; ++i)
        address = address << 8 | quint32(numbers[i]);
    const auto port = quint16(numbers[4] << 8 | numbers[5]);
    if (port == 0)
        return {};
    return Endpoint{QHostAddress(address), port};
}

std::optional<quint16> extendedPassive(QStringView text)
{
    const qsizetype open = text.indexOf(u'(');
    if (open < 0 || text.size() < open + 5)
        return {};
    const QChar delimiter = text[open + 1];
    if (isDigit(delimiter) || text[open + 2] != delimiter || text[open + 3] != delimiter)
        return {};
    const QStringView rest = text.mid(open + 4);
    const qsizetype end = rest.indexOf(delimiter);
    bool isNumber = false;
    const ushort port = rest.first(qMax<qsizetype>(end, 0)).toUShort(&isNumber);
    if (!isNumber || port == 0)
        return {};
    return port;
}

QString activeLine(const Endpoint& endpoint)
{
    const quint16 port = endpoint.port;
    if (isIpv6(endpoint.address)) {
        QHostAddress bare = endpoint.address;
        bare.setScopeId({});
        return QStringLiteral("EPRT |2|%1|%2|\r\n").arg(bare.toString()).arg(port);
    }
    QString address = QHostAddress(endpoint.address.toIPv4Address()).toString();
    return QStringLiteral("PORT %1,%2,%3\r\n")
        .arg(address.replace(u'.', u','))
        .arg(port >> 8)
        .arg(port & 255);
}

bool isIpv6(const QHostAddress& address)
{
    bool isIpv4 = false;
    address.toIPv4Address(&isIpv4);
    return !isIpv4;
}

} // namespace FtpAddresses
