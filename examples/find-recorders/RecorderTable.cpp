#include "find-recorders/RecorderTable.h"

#include <QTextStream>

#include <algorithm>

namespace {

/// Orders places by the numbers in them, so that 10.0.0.9 comes ahead of 10.0.0.10: each number as wide as
/// any.
QString orderOf(const QString& place)
{
    constexpr int kWidth = 10;
    QString order;
    QString digits;
    const auto closeNumber = [&] {
        order += digits.isEmpty() ? QString() : digits.rightJustified(kWidth, u'0');
        digits.clear();
    };
    for (const QChar c : place) {
        if (c.isDigit()) {
            digits += c;
        } else {
            closeNumber();
            order += c;
        }
    }
    closeNumber();
    return order;
}

QTextStream& tableOut()
{
    static QTextStream stream(stdout);
    return stream;
}

} // namespace

QString RecorderTable::line(const QString& place, const QString& type, const QString& serial,
                            const QString& firmware, const QString& ways)
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(place, -20)
        .arg(type, -16)
        .arg(serial, 6)
        .arg(firmware, -12)
        .arg(ways);
}

QString RecorderTable::line(const Row& row)
{
    return line(row.place, row.type, row.serial, row.firmware.isEmpty() ? QStringLiteral("-") : row.firmware,
                row.ways.join(QStringLiteral(", ")));
}

RecorderTable::Row& RecorderTable::rowOf(const QString& place)
{
    const auto at = std::find_if(m_rows.begin(), m_rows.end(), [&](const Row& row) {
        return row.place == place || orderOf(row.place) > orderOf(place);
    });
    if (at != m_rows.end() && at->place == place)
        return *at;
    return *m_rows.insert(at, Row{place, {}, {}, {}, {}});
}

void RecorderTable::add(const QString& place, const HydDevice& device, const QString& way)
{
    Row& row = rowOf(place);
    row.type = QString::fromStdString(deviceTypeText(device.devType()));
    row.serial = QString::number(device.serial());
    if (!device.firmwareVer().empty())
        row.firmware = QString::fromStdString(device.firmwareVer());
    if (!way.isEmpty() && !row.ways.contains(way))
        row.ways << way;
    show(row);
}

QString RecorderTable::text() const
{
    QString text = line(QStringLiteral("PLACE"), QStringLiteral("TYPE"), QStringLiteral("SERIAL"),
                        QStringLiteral("FIRMWARE"), QStringLiteral("FOUND BY")) +
                   u'\n';
    for (const Row& row : m_rows)
        text += line(row) + u'\n';
    return text;
}

void RecorderTable::show(const Row& changed)
{
    if (!m_isTerminal) {
        tableOut() << line(changed) << Qt::endl;
        return;
    }
    // Up to the head, and what was there is wiped off.
    if (m_shownLines > 0)
        tableOut() << QStringLiteral("\x1B[%1A\x1B[J").arg(m_shownLines);
    tableOut() << text() << Qt::flush;
    m_shownLines = m_rows.size() + 1;
}

void RecorderTable::finish()
{
    if (!m_isTerminal && !isEmpty())
        tableOut() << Qt::endl << text() << Qt::flush;
}
