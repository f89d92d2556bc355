// Scans a subnet, some of whose addresses never answer, and quits at a given moment: at a step of the scan,
// or after so many reports of its probes. The test runs it and looks at how it ends.

#include "NvxQtCommon/discovery/HydMarcoAdapter.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QTcpServer>
#include <QTimer>

#include <cstdlib>
#include <memory>
#include <vector>

namespace {

constexpr int kSteps = HydMarcoAdapter::kScannedAddresses;
constexpr int kSilent = 16;

enum WhatBecomesOfTheAdapter {
    StaysUntilTheEnd,
    GoesBeforeQuitting,
    IsLeftBehind,
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 3)
        return EXIT_FAILURE;
    const int moment = std::atoi(argv[1]);
    const int fate = std::atoi(argv[2]);

    std::vector<std::unique_ptr<QTcpServer>> silent;
    for (int number = 0; number < kSilent; ++number) {
        silent.push_back(std::make_unique<QTcpServer>());
        silent.back()->listen(QHostAddress(QStringLiteral("127.63.6.%1").arg(number * kSilent)), PortControl);
    }

    auto adapter = std::make_unique<HydMarcoAdapter>();
    int passed = 0;
    const auto pass = [&] {
        if (passed++ != moment)
            return;
        if (fate == GoesBeforeQuitting)
            adapter.release()->deleteLater();
        QCoreApplication::quit();
    };
    QObject::connect(adapter.get(), &HydMarcoAdapter::scanNetWorkStep, &app, pass);
    // What comes on the probes' threads is counted on this one.
    QObject::connect(adapter.get(), &HydMarcoAdapter::signalSocketError, &app, pass);
    QObject::connect(adapter.get(), &HydMarcoAdapter::deviceFound, &app, pass);
    QTimer::singleShot(0, adapter.get(), [&] { adapter->scanNetWork(QStringLiteral("127.63.6."), 1000); });
    static_assert(kSteps - kSilent > 0);
    const int code = QCoreApplication::exec();
    if (fate == IsLeftBehind)
        adapter.release();
    return code;
}
