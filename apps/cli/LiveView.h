#pragma once

#include "common/TokenStore.h"

#include <QSocketNotifier>
#include <QStringList>

#include <memory>

class Clock;

// "marlock codes --watch": the codes of the stored tokens, redrawn every second (so also at
// every period boundary) and whenever another program changes the tokens, until Ctrl-C or a
// termination signal ends it cleanly. On a terminal it redraws in place with a progress bar per
// token and the cursor hidden; otherwise it prints the table again each time a code changes,
// for logs and pipes.
class LiveView : public QObject {
    Q_OBJECT
public:
    explicit LiveView(companion::TokenStore& store);
    ~LiveView() override;

    // Runs until a signal stops it; returns the exit status.
    int exec();

private:
    void draw();

    companion::TokenStore& store_;
    const bool terminal_;
    std::unique_ptr<Clock> clock_;
    std::unique_ptr<QSocketNotifier> stopNotifier_;
    int linesDrawn_ = 0;
    QStringList lastCodes_;
};
