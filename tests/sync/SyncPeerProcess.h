#pragma once

#include "tests/support/TestSupport.h"

#include <QProcess>
#include <QStringList>

#include <chrono>

namespace synctest {

// A sync_peer process (tests/sync/SyncPeer.cpp), spoken to line by line. It quits when its input
// closes; one that does not is killed.
class PeerProcess {
public:
    explicit PeerProcess(const QStringList& arguments = {},
                         const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
                         const QString& program = QStringLiteral(SYNC_PEER_PATH)) {
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(program, arguments);
    }
    ~PeerProcess() {
        process_.closeWriteChannel();
        if (!process_.waitForFinished(5000)) {
            process_.kill();
            process_.waitForFinished();
        }
    }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    void send(const QString& command) { process_.write((command + QLatin1Char('\n')).toUtf8()); }
    // Sends `command` and waits for its "ok"; false (with what the peer said) otherwise.
    bool run(const QString& command) {
        send(command);
        return waitFor(QStringLiteral("ok ") + command.section(QLatin1Char(' '), 0, 0));
    }
    // Waits until the peer has said `line` (at any time since the last clear()).
    bool waitFor(const QString& line, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        return testsupport::waitUntil(
            [&] {
                read();
                return lines.contains(line);
            },
            timeout);
    }
    // Asks for the records the peer holds now (or, with "stored <passcode>", those its store holds).
    QString records(const QString& command = QStringLiteral("records")) {
        lines.removeIf([](const QString& l) { return l.startsWith(QLatin1String("records ")); });
        send(command);
        testsupport::waitUntil([&] {
            read();
            return std::any_of(lines.begin(), lines.end(),
                               [](const QString& l) { return l.startsWith(QLatin1String("records ")); });
        });
        for (const QString& l : lines)
            if (l.startsWith(QLatin1String("records ")))
                return l.mid(8);
        return QStringLiteral("(no answer)");
    }
    void clear() {
        read();
        lines.clear();
    }
    QString transcript() const { return lines.join(QLatin1Char('\n')); }
    QProcess& process() { return process_; }

    QStringList lines;

private:
    void read() {
        while (process_.canReadLine())
            lines.append(QString::fromUtf8(process_.readLine()).trimmed());
    }
    QProcess process_;
};

} // namespace synctest
