#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"

#include <QList>
#include <QString>
#include <QStringList>

/// The recorders found so far, one row for each place where one answers. On a terminal the table is shown
/// anew in its own place whenever a row changes, elsewhere each row is a line once it is complete.
class RecorderTable
{
public:
    explicit RecorderTable(bool isTerminal) : m_isTerminal(isTerminal) {}

    /// A recorder answers at `place`, an address or a port, and was found in this way. What a record doesn't
    /// say is left as it was; a way is named once.
    void add(const QString& place, const HydDevice& device, const QString& way);
    /// The same for a record that isn't a way of its own to find a recorder.
    void complete(const QString& place, const HydDevice& device) { add(place, device, {}); }
    bool isEmpty() const { return m_rows.isEmpty(); }
    /// All rows with their head, in the order of their places.
    QString text() const;
    /// Shows the table as it is in the end.
    void finish();

private:
    struct Row
    {
        QString place;
        QString type;
        QString serial;
        QString firmware;
        QStringList ways;
    };

    static QString line(const QString& place, const QString& type, const QString& serial,
                        const QString& firmware, const QString& ways);
    static QString line(const Row& row);
    Row& rowOf(const QString& place);
    void show(const Row& changed);

    bool m_isTerminal;
    /// Sorted by place.
    QList<Row> m_rows;
    /// Lines that the table takes on the terminal.
    qsizetype m_shownLines = 0;
};
