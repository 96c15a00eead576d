#include "PasscodeReader.h"

#include <QByteArray>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <termios.h>
#include <unistd.h>

namespace passcode {

namespace {

constexpr qsizetype longest = 1024;
const int stopSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

// The terminal's settings while echo is off, for the signal handler to put back.
termios savedTerminal;
volatile sig_atomic_t echoIsOff = 0;
struct sigaction previousActions[sizeof(stopSignals) / sizeof(int)];

void restoreAndResignal(int signal) {
    if (echoIsOff)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
    echoIsOff = 0;
    // Let the signal do what it would have done (end or stop the process) with the terminal sane.
    for (size_t i = 0; i < std::size(stopSignals); ++i)
        if (stopSignals[i] == signal)
            sigaction(signal, &previousActions[i], nullptr);
    raise(signal);
}

// One line from standard input, byte by byte so nothing past it is taken from a pipe that a
// later read may need. Absent at end of input before any byte.
std::optional<QByteArray> readLine(QString* problem) {
    QByteArray line;
    char byte = 0;
    ssize_t got = 0;
    bool any = false;
    while ((got = ::read(STDIN_FILENO, &byte, 1)) == 1 || (got < 0 && errno == EINTR)) {
        if (got < 0)
            continue;
        any = true;
        if (byte == '\n')
            break;
        if (line.size() == longest) {
            line.fill('\0');
            *problem = QStringLiteral("the passcode is longer than %1 bytes").arg(longest);
            return std::nullopt;
        }
        line.append(byte);
    }
    if (!any) {
        *problem = QStringLiteral("no passcode was given on standard input");
        return std::nullopt;
    }
    if (line.endsWith('\r'))
        line.chop(1);
    return line;
}

std::optional<QString> take(std::optional<QByteArray> line, QString* problem) {
    if (!line)
        return std::nullopt;
    if (line->isEmpty()) {
        *problem = QStringLiteral("the passcode is empty");
        return std::nullopt;
    }
    QString passcode = QString::fromUtf8(*line);
    line->fill('\0');
    return passcode;
}

std::optional<QString> readFromTerminal(const QString& prompt, QString* problem) {
    termios quiet{};
    if (tcgetattr(STDIN_FILENO, &savedTerminal) != 0) {
        *problem =
            QStringLiteral("cannot set up the terminal: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return std::nullopt;
    }
    quiet = savedTerminal;
    quiet.c_lflag &= ~tcflag_t(ECHO);
    quiet.c_lflag |= ECHONL; // the Enter still shows, so the next output starts on a new line
    for (size_t i = 0; i < std::size(stopSignals); ++i) {
        struct sigaction action {};
        action.sa_handler = restoreAndResignal;
        sigemptyset(&action.sa_mask);
        sigaction(stopSignals[i], &action, &previousActions[i]);
    }
    echoIsOff = 1;
    // Typed-ahead input is dropped with the echo switched off; the prompt comes after, so that
    // nothing typed in answer to it is lost.
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    const QByteArray shown = prompt.toUtf8();
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, shown.constData(), size_t(shown.size()));
    auto line = readLine(problem);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
    echoIsOff = 0;
    for (size_t i = 0; i < std::size(stopSignals); ++i)
        sigaction(stopSignals[i], &previousActions[i], nullptr);
    return take(std::move(line), problem);
}

} // namespace

std::optional<QString> read(const QString& prompt, QString* problem) {
    if (isatty(STDIN_FILENO))
        return readFromTerminal(prompt, problem);
    return take(readLine(problem), problem);
}

std::optional<QString> readNew(const QString& prompt, const QString& confirmPrompt, QString* problem) {
    if (!isatty(STDIN_FILENO))
        return take(readLine(problem), problem);
    auto first = readFromTerminal(prompt, problem);
    if (!first)
        return std::nullopt;
    const auto second = readFromTerminal(confirmPrompt, problem);
    if (!second)
        return std::nullopt;
    if (*first != *second) {
        *problem = QStringLiteral("the two passcodes differ");
        return std::nullopt;
    }
    return first;
}

} // namespace passcode
