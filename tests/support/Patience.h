#pragma once

#include <QTest>

/// Milliseconds that a test waits at most for what has to come. A wait ends at once when it has come; where
/// other programs have the processors, that takes its time.
inline constexpr int kPatienceMs = 30000;

// Qt Test gives up after 5 s.
#undef QTRY_VERIFY
#undef QTRY_VERIFY2
#undef QTRY_COMPARE
#define QTRY_VERIFY(expr) QTRY_VERIFY_WITH_TIMEOUT(expr, kPatienceMs)
#define QTRY_VERIFY2(expr, message) QTRY_VERIFY2_WITH_TIMEOUT(expr, message, kPatienceMs)
#define QTRY_COMPARE(expr, expected) QTRY_COMPARE_WITH_TIMEOUT(expr, expected, kPatienceMs)
