// Every test executable starts here: a Qt application object first (the main queue, timers and
// QObjects need one), then GoogleTest. Death tests re-execute the binary ("threadsafe" style)
// because Qt starts threads of its own.
#include <QApplication>
#include <QCoreApplication>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

// Points TMPDIR at a folder of the process's own, removed at exit (after every other exit
// handler, settings saved at exit included). Death-test children, which abort without cleaning
// up, and helper processes inherit it, so a run leaves nothing in the system's temporary folder.
void useOwnTemporaryFolder() {
    if (std::getenv("MARLOCK_TEST_TMPDIR"))
        return; // a death-test child: the parent's folder serves, and the parent removes it
    const char* base = std::getenv("TMPDIR");
    std::string folder = std::string(base && *base ? base : "/tmp") + "/marlock-test-XXXXXX";
    if (!mkdtemp(folder.data()))
        return;
    static std::string owned;
    owned = folder;
    setenv("TMPDIR", owned.c_str(), 1);
    setenv("MARLOCK_TEST_TMPDIR", owned.c_str(), 1);
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(owned, ignored);
    });
}

} // namespace

int main(int argc, char** argv) {
    useOwnTemporaryFolder();
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
