// What happens on a terminal: passcodes typed without echo, and the live view of the codes,
// each in a real process on a pseudo-terminal. Passcodes piped by scripts, too.
#include "common/TokenStore.h"

#include "tests/apps/AppsTestSupport.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

// A program running on a pseudo-terminal of its own, which this test types into and reads.
class Terminal {
public:
    Terminal(const QString& program, const QStringList& arguments) {
        std::vector<QByteArray> storage{program.toLocal8Bit()};
        for (const QString& argument : arguments)
            storage.push_back(argument.toLocal8Bit());
        std::vector<char*> argv;
        for (QByteArray& a : storage)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_ = forkpty(&master_, nullptr, nullptr, nullptr);
        if (pid_ == 0) {
            execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Terminal() {
        if (pid_ > 0 && status_ < 0) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (master_ >= 0)
            close(master_);
    }
    bool started() const { return pid_ > 0; }

    // Reads until `text` has been shown (true), or the program ends or 10 s pass.
    bool waitFor(const QByteArray& text) {
        QDeadlineTimer deadline(10000);
        while (!output_.contains(text) && !deadline.hasExpired()) {
            pollfd fd{master_, POLLIN, 0};
            if (poll(&fd, 1, 50) <= 0)
                continue;
            char buffer[4096];
            const ssize_t got = read(master_, buffer, sizeof buffer);
            if (got <= 0)
                break; // the program is gone
            output_.append(buffer, got);
        }
        return output_.contains(text);
    }
    void type(const QByteArray& keys) {
        ASSERT_EQ(write(master_, keys.constData(), size_t(keys.size())), keys.size());
    }
    // The raw wait status once the program has ended (killed when it has not within 10 s).
    int finish() {
        waitFor("\x01never shown");
        for (QDeadlineTimer deadline(5000); status_ < 0 && !deadline.hasExpired(); usleep(10000))
            if (waitpid(pid_, &status_, WNOHANG) == 0)
                status_ = -1;
        if (status_ < 0) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, &status_, 0);
        }
        return status_;
    }
    bool echoes() const {
        termios settings{};
        return tcgetattr(master_, &settings) == 0 && (settings.c_lflag & ECHO);
    }
    const QByteArray& output() const { return output_; }

private:
    int master_ = -1;
    pid_t pid_ = -1;
    int status_ = -1;
    QByteArray output_;
};

class Passcode : public ::testing::Test {
protected:
    QString result() {
        QFile file(dir_.filePath("result"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    QStringList probe(const char* mode) { return {mode, dir_.filePath("result")}; }
    QTemporaryDir dir_;
};

TEST_F(Passcode, ScriptsPipeOneLine) {
    const struct {
        const char* mode;
        QByteArray input;
        const char* result;
    } cases[] = {
        {"read", "s3cret phrase\n", "passcode=s3cret phrase\necho=-\n"},
        {"read", "s3cret\r\nnext line\n", "passcode=s3cret\necho=-\n"},
        {"read", "s3cret", "passcode=s3cret\necho=-\n"},
        {"new", "first\nsecond\n", "passcode=first\necho=-\n"},
        {"read", "", "problem=no passcode was given on standard input\necho=-\n"},
        {"read", "\n", "problem=the passcode is empty\necho=-\n"},
        {"read", QByteArray(1025, 'a') + "\n", "problem=the passcode is longer than 1024 bytes\necho=-\n"},
    };
    for (const auto& c : cases) {
        QProcess process;
        process.start(PASSCODE_PROBE_PATH, probe(c.mode));
        process.write(c.input);
        process.closeWriteChannel();
        ASSERT_TRUE(process.waitForFinished(10000));
        EXPECT_EQ(result(), c.result) << c.input.left(40).toStdString();
    }
}

TEST_F(Passcode, TypedPasscodesAreNeverEchoedAndTheTerminalComesBack) {
    {
        Terminal terminal(PASSCODE_PROBE_PATH, probe("read"));
        ASSERT_TRUE(terminal.started() && terminal.waitFor("Passcode: "));
        terminal.type("hunter2\n");
        EXPECT_EQ(terminal.finish(), 0);
        EXPECT_FALSE(terminal.output().contains("hunter2")) << terminal.output().toStdString();
        EXPECT_EQ(result(), "passcode=hunter2\necho=1\n");
    }
    {
        Terminal terminal(PASSCODE_PROBE_PATH, probe("new"));
        ASSERT_TRUE(terminal.waitFor("New passcode: "));
        terminal.type("abc\n");
        ASSERT_TRUE(terminal.waitFor("Again: "));
        terminal.type("abd\n");
        EXPECT_EQ(terminal.finish(), 0);
        EXPECT_EQ(result(), "problem=the two passcodes differ\necho=1\n");
    }
    {
        // Ctrl-C at the prompt ends the program as Ctrl-C does, with echo back on.
        Terminal terminal(PASSCODE_PROBE_PATH, probe("read"));
        ASSERT_TRUE(terminal.waitFor("Passcode: "));
        terminal.type("half\x03");
        const int status = terminal.finish();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
        EXPECT_TRUE(terminal.echoes());
    }
}

TEST(LiveView, RedrawsInPlaceAndLeavesTheTerminalCleanOnCtrlC) {
    appstest::ScopedProfile profile;
    companion::TokenStore store;
    marlockCommon::TokenRecord record;
    record.issuer = "Watched";
    record.secret = "watched-secret";
    ASSERT_TRUE(store.reload() && store.add(record));

    Terminal terminal(MARLOCK_CLI_PATH, {"codes", "--watch"});
    ASSERT_TRUE(terminal.waitFor("\x1b[?25l")) << "the cursor is hidden";
    ASSERT_TRUE(terminal.waitFor("Watched"));
    // A redraw goes back over the lines drawn before and clears them.
    ASSERT_TRUE(terminal.waitFor("\x1b[2F\x1b[J")) << terminal.output().toStdString();
    terminal.type("\x03");
    const int status = terminal.finish();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(terminal.output().endsWith("\x1b[?25h")) << "the cursor is shown again";
}

} // namespace
