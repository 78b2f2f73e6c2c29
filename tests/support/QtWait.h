// Waiting for the event loop to bring something about, in tests run by GoogleTest. QTest's QTRY_ macros
// report a timeout to QTest's own result log, which GoogleTest never reads: the test function returns
// early and passes. These fail the test, with the values compared, when the wait runs out.
#pragma once

#include <QTest>
#include <gtest/gtest.h>

// Processes events until `expr` holds or `ms` milliseconds have passed; fails the test (and returns
// from the function, as ASSERT_ does) if it never held.
#define KAVRI_TRY_VERIFY(expr, ms)                                                                                     \
    ASSERT_TRUE(QTest::qWaitFor([&]() { return bool(expr); }, ms)) << "timed out waiting for: " #expr

// Processes events until `actual` == `expected` or `ms` milliseconds have passed; fails with both values
// if they never became equal.
#define KAVRI_TRY_COMPARE(actual, expected, ms)                                                                        \
    do {                                                                                                               \
        (void)QTest::qWaitFor([&]() { return (actual) == (expected); }, ms);                                           \
        ASSERT_EQ(actual, expected) << "timed out waiting";                                                            \
    } while (0)
