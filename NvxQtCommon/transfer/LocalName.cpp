#include "NvxQtCommon/transfer/LocalName.h"

#include <QStringList>

#include <algorithm>

namespace {

constexpr qsizetype kMaxNameBytes = 255;

bool isRefusedCharacter(QChar c)
{
    switch (c.category()) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        // A colon leads to another drive or to a stream behind the file.
        return c == u'/' || c == u'\\' || c == u':';
    }
}

bool isDeviceName(const QString& name)
{
    // Windows looks at what stands ahead of the first point, without blanks.
    const QString base = name.section(u'.', 0, 0).trimmed().toUpper();
    static const QStringList kDevices{QStringLiteral("CON"),    QStringLiteral("PRN"),
                                      QStringLiteral("AUX"),    QStringLiteral("NUL"),
                                      QStringLiteral("CONIN$"), QStringLiteral("CONOUT$")};
    if (kDevices.contains(base))
        return true;
    const bool isPort = base.startsWith(QLatin1String("COM")) || base.startsWith(QLatin1String("LPT"));
    // It takes superscript digits too.
    return isPort && base.size() == 4 && QStringLiteral("0123456789\u00B9\u00B2\u00B3").contains(base[3]);
}

} // namespace

bool isBareFileName(const QString& name)
{
    return !name.isEmpty() && !name.endsWith(u'.') && !name.endsWith(u' ') && name.isValidUtf16() &&
           name.toUtf8().size() <= kMaxNameBytes && std::ranges::none_of(name, isRefusedCharacter) &&
           !isDeviceName(name);
}
