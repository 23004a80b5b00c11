// Runs each test function of a QtTest class in a process of its own, for
// scenarios that need a fresh library (one key manager per process):
//   TW_TEST_MAIN_ISOLATED(TestScan)
// With function names on the command line it is a plain QtTest run (what
// ctest does through tw_add_isolated_tests); without, it starts itself once
// per test function and fails if any of them fails.
#ifndef TWTEST_ISOLATEDTEST_H
#define TWTEST_ISOLATEDTEST_H

#include <QCoreApplication>

int twRunIsolated(QObject *testObject, int argc, char **argv);

#define TW_TEST_MAIN_ISOLATED(TestObject)                                                                            \
    int main(int argc, char **argv)                                                                                  \
    {                                                                                                                \
        QCoreApplication app(argc, argv);                                                                            \
        TestObject tc;                                                                                               \
        return twRunIsolated(&tc, argc, argv);                                                                       \
    }

#endif
