#pragma once

#include "common/TokenStore.h"

#include <QList>
#include <QWidget>

#include <memory>

class Clock;
class QLabel;
class QVBoxLayout;

namespace companion {

class CodeRow;
class TokenSync;

// The Today panel: the current codes of every token, compact, with the state of sync. It follows
// every change made anywhere (tokens, preferences, sync) through the store's and the library's
// notifications; the only timer is the clock that turns the codes over. Clicking a row copies
// its code.
class TodayPanel : public QWidget {
    Q_OBJECT
public:
    // Neither is owned; both must outlive the panel.
    TodayPanel(TokenStore* store, TokenSync* sync, QWidget* parent = nullptr);
    ~TodayPanel() override;

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    void rebuild();
    void render(bool tick);
    void showSyncState();
    void dump() const;

    TokenStore* store_;
    TokenSync* sync_;
    QVBoxLayout* rowsLayout_;
    QLabel* empty_;
    QLabel* syncState_;
    QLabel* copied_;
    QList<CodeRow*> rows_;
    std::unique_ptr<Clock> clock_;
    QString problem_;
};

} // namespace companion
