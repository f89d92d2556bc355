#pragma once

#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "NvxQtCommon/discovery/HydSerialPortScanner.h"

#include "find-recorders/RecorderTable.h"

#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <vector>

class HydSerialPortChecker;

/// Where to look for recorders.
struct SearchOrder
{
    bool broadcast = false;
    QStringList prefixes;     ///< of subnets, each with its last point
    bool listedPorts = false; ///< all serial ports that the machine lists
    QStringList serialPaths;  ///< serial lines that it doesn't
    QList<uint32_t> baudRates{19200, 115200, 230400, 460800, 921600}; ///< bit/s
    int seconds = 12; ///< a silent address or port never says that it has nothing to say
};

/// Looks for recorders in all the ways of its order at once and shows what it finds. Ends with finished()
/// when its time is over.
class RecorderSearch : public QObject
{
    Q_OBJECT

public:
    /// `table` stays with the caller and outlives the search.
    RecorderSearch(const SearchOrder& order, RecorderTable& table, QObject* parent = nullptr);
    ~RecorderSearch() override;

    void start();
    /// Ends the search early.
    void stop();

Q_SIGNALS:
    void finished();

private:
    void broadcast();
    void scanSubnets();
    void scanListedPorts();
    void checkSerialPath(const QString& path);
    void askForDetails(const HydDevice& device);

    SearchOrder m_order;
    RecorderTable& m_table;
    /// Broadcasts, and asks each recorder that answers by TCP for what its answer doesn't tell.
    HydMarcoAdapter m_broadcasts;
    HydMarcoAdapter m_scans;
    HydSerialPortScanner m_ports;
    std::vector<std::unique_ptr<HydSerialPortChecker>> m_checkers;
    QSet<QString> m_detailed;
    QTimer m_time;
};
