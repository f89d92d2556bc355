#pragma once

#include "tests/support/Patience.h"

#include <QObject>
#include <QRegularExpression>

/// Base of all test classes: an unexpected warning fails the test function that caused it. A test that
/// overrides init() calls this one first.
class NvxTestCase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { failOnUnexpectedWarnings(); }

protected:
    void failOnUnexpectedWarnings() { QTest::failOnWarning(QRegularExpression(QStringLiteral(".*"))); }
};
