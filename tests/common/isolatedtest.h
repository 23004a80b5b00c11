// TW_TEST_MAIN_ISOLATED(TestClass): each test function in a process of its
// own (one key manager per process); see docs/tests.md.
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
