#include "LiveView.h"

#include "CodeTable.h"
#include "Console.h"

#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/timing/Clock.h"

#include <QCoreApplication>

#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// Ctrl-C and termination become a byte in a pipe that the event loop watches: a signal handler
// may do little more than write(2), and the view still has to restore the cursor.
int stopPipe[2] = {-1, -1};

void requestStop(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(stopPipe[1], &byte, 1);
}

int terminalWidth() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

} // namespace

LiveView::LiveView(companion::TokenStore& store)
    : store_(store)
    , terminal_(console::outputIsTerminal()) {
    if (stopPipe[0] < 0 && pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        stopPipe[0] = stopPipe[1] = -1;
    if (stopPipe[0] >= 0) {
        stopNotifier_ = std::make_unique<QSocketNotifier>(stopPipe[0], QSocketNotifier::Read);
        connect(stopNotifier_.get(), &QSocketNotifier::activated, this, [] { QCoreApplication::exit(0); });
        struct sigaction action {};
        action.sa_handler = requestStop;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
        sigaction(SIGHUP, &action, nullptr);
    }
    // Integer periods make every period boundary a whole second: one clock serves all tokens.
    clock_ = std::make_unique<Clock>(1.0, [this](double) { draw(); });
    connect(&store_, &companion::TokenStore::tokensChanged, this, &LiveView::draw);
}

LiveView::~LiveView() {
    if (clock_->started())
        clock_->stop();
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        signal(sig, SIG_DFL);
}

int LiveView::exec() {
    if (terminal_)
        console::out() << "\x1b[?25l"; // hide the cursor while redrawing
    draw();
    clock_->start();
    const int status = QCoreApplication::exec();
    clock_->stop();
    if (terminal_)
        console::out() << "\x1b[?25h";
    console::out().flush();
    return status;
}

void LiveView::draw() {
    const auto rows = codetable::rows(store_.tokens(), timeIntervalSince1970());
    auto& out = console::out();
    if (!terminal_) {
        QStringList codes;
        for (const auto& row : rows)
            codes << row.token.id + row.code;
        if (linesDrawn_ > 0 && codes == lastCodes_)
            return;
        lastCodes_ = codes;
        if (linesDrawn_ > 0)
            out << '\n';
        const QStringList lines = codetable::lines(rows, false, false, 0);
        for (const QString& line : lines)
            out << line << '\n';
        if (rows.empty())
            out << "No tokens yet: add one with marlock add.\n";
        linesDrawn_ += static_cast<int>(lines.size()) + 1;
        out.flush();
        return;
    }
    QStringList lines{QStringLiteral("Codes as they change. Ctrl-C stops.")};
    if (rows.empty())
        lines << QStringLiteral("No tokens yet: add one with marlock add.");
    lines << codetable::lines(rows, true, true, terminalWidth());
    // Back to the first line drawn, clear to the end of the screen, draw again.
    if (linesDrawn_ > 0)
        out << "\x1b[" << linesDrawn_ << "F\x1b[J";
    for (const QString& line : lines)
        out << line << '\n';
    linesDrawn_ = static_cast<int>(lines.size());
    out.flush();
}
