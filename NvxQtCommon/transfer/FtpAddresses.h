#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QHostAddress>
#include <QString>
#include <QStringView>

#include <optional>

/// The addresses of data connections as replies and commands bear them.
namespace FtpAddresses {

struct Endpoint
{
    QHostAddress address;
    quint16 port = 0;
};

/// The first six numbers with commas between in the text of a 227 reply. Nothing where there are none, where
/// one is over 255, or where the port is 0.
NVXQTCOMMON_EXPORT std::optional<Endpoint> passive(QStringView text);

/// The port between the delimiters of a 229 reply, "(|||6446|)" with any delimiter. Nothing where there is
/// none or where it isn't 1 to 65535.
NVXQTCOMMON_EXPORT std::optional<quint16> extendedPassive(QStringView text);

/// "PORT h1,h2,h3,h4,p1,p2\r\n" for an IPv4 address, also one that is mapped to IPv6, or else
/// "EPRT |2|address|port|\r\n".
NVXQTCOMMON_EXPORT QString activeLine(const Endpoint& endpoint);

/// True for an address that needs the extended forms.
NVXQTCOMMON_EXPORT bool isIpv6(const QHostAddress& address);

} // namespace FtpAddresses
