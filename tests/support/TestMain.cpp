// Every test executable starts here: a Qt application object first (the main queue, timers and
// QObjects need one), then GoogleTest. Death tests re-execute the binary ("threadsafe" style)
// because Qt starts threads of its own.
#include <QApplication>
#include <QCoreApplication>

#include <gtest/gtest.h>

#include <memory>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#ifdef MARLOCK_TEST_GUI
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    return RUN_ALL_TESTS();
}
