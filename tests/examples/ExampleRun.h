#pragma once

#include "tests/support/Patience.h"

#include <QProcess>
#include <QStringList>

/// How a program ended.
struct ExampleRun
{
    int code = -1; ///< -1 when it crashed, or didn't end
    QString output;
    QString errors;
};

/// Runs a program to its end; what lives on this thread goes on meanwhile.
inline ExampleRun runExample(const char* program, const QStringList& arguments)
{
    QProcess process;
    process.start(QLatin1String(program), arguments);
    if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kPatienceMs))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}
