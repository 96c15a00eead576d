#pragma once

#include "common/StoredToken.h"

#include <QColor>
#include <QWidget>

class NumberScrollView;
class ProgressView;
class QLabel;

namespace companion {

// One token as the companion window and the Today panel show it: issuer and account, the
// current code in a NumberScrollView (grouped with the separator preference, rolling to the next
// code when that preference is on, turning red in its last seconds when that one is), and a
// ProgressView for the part of the period that is left.
//
// The row computes nothing by itself: its window calls render() on every tick of its clock and
// whenever a preference or the token changes, so all rows of a window move together.
//
//   auto* row = new CodeRow(token, compact, list);
//   row->render(timeIntervalSince1970(), CodeRow::Change::tick);
class CodeRow : public QWidget {
    Q_OBJECT
public:
    // The seconds before a code changes in which it is shown red, when that preference is on.
    static constexpr double warningSeconds = 5.0;

    // `compact` rows (the panel) use smaller type.
    CodeRow(const StoredToken& token, bool compact, QWidget* parent = nullptr);

    const StoredToken& token() const { return token_; }
    // Shows another version of the token (a rename, an HOTP counter that moved on).
    void setToken(const StoredToken& token);

    // Why render() is called: only the tick of a new code may roll (a preference change or a
    // renamed token shows the result at once).
    enum class Change { tick, restyle };
    // Shows the code and the period left at `now` (seconds since 1970).
    void render(double now, Change change);

    // What is on screen, for copying and for the programs' state dump.
    QString code() const { return code_; } // digits only
    QString displayedCode() const;         // with the separator
    QColor codeColor() const;

private:
    StoredToken token_;
    QLabel* issuer_;
    QLabel* account_;
    NumberScrollView* codeView_;
    ProgressView* progress_;
    QString code_;
    double lastProgress_ = -1;
};

} // namespace companion
