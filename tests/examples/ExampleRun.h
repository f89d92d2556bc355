#pragma once

#include <QProcess>
#include <QStringList>
#include <QTest>

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
    if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 20000))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}
