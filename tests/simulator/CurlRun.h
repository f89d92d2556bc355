#pragma once

#include "tests/support/Patience.h"

#include <QProcess>
#include <QStringList>

/// One run of the program curl, which the event loop of the test's thread goes on beside.
class CurlRun
{
public:
    explicit CurlRun(const QStringList& arguments)
    {
        QProcess program;
        program.start(QStringLiteral("curl"),
                      QStringList{QStringLiteral("-sS"), QStringLiteral("--max-time"), QStringLiteral("20")} +
                          arguments);
        m_hasEnded = QTest::qWaitFor([&] { return program.state() == QProcess::NotRunning; }, kPatienceMs);
        exitCode = m_hasEnded ? program.exitCode() : -1;
        output = program.readAllStandardOutput();
        errors = program.readAllStandardError();
    }

    int exitCode = -1;
    QByteArray output;
    QByteArray errors;

private:
    bool m_hasEnded = false;
};
