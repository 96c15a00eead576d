#include "today/TodayPanel.h"

#include "common/TokenSync.h"
#include "gui/AppIcon.h"
#include "gui/CodeClipboard.h"
#include "gui/CodeRow.h"
#include "gui/PreferencesWatcher.h"
#include "gui/StateDump.h"

#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/timing/Clock.h"

#include <QCoreApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QProcess>
#include <QPushButton>
#include <QVBoxLayout>

namespace companion {

TodayPanel::TodayPanel(TokenStore* store, TokenSync* sync, QWidget* parent)
    : QWidget(parent)
    , store_(store)
    , sync_(sync)
    , rowsLayout_(new QVBoxLayout)
    , empty_(new QLabel(tr("No tokens yet. Add them in Marlock Companion."), this))
    , syncState_(new QLabel(this))
    , copied_(new QLabel(this)) {
    setWindowTitle(tr("Marlock Today"));
    setWindowIcon(appIcon());
    setMinimumWidth(300);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 8, 6, 8);
    auto* title = new QLabel(tr("<b>Codes</b>"), this);
    layout->addWidget(title);
    rowsLayout_->setSpacing(0);
    layout->addLayout(rowsLayout_);
    empty_->setWordWrap(true);
    layout->addWidget(empty_);
    for (QLabel* label : {syncState_, copied_}) {
        label->setWordWrap(true);
        label->setForegroundRole(QPalette::PlaceholderText);
        layout->addWidget(label);
    }
    auto* open = new QPushButton(tr("Open Marlock Companion"), this);
    connect(open, &QPushButton::clicked, this, [] {
        // The companion installed beside this program, else the one on the PATH.
        const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/marlock-companion");
        if (!QProcess::startDetached(beside, {}))
            QProcess::startDetached(QStringLiteral("marlock-companion"), {});
    });
    layout->addWidget(open);

    connect(store_, &TokenStore::tokensChanged, this, &TodayPanel::rebuild);
    connect(new PreferencesWatcher(this), &PreferencesWatcher::changed, this, [this] { render(false); });
    connect(sync_, &TokenSync::stateChanged, this, [this] {
        problem_.clear();
        showSyncState();
    });
    connect(sync_, &TokenSync::problem, this, [this](const QString& message) {
        problem_ = message;
        showSyncState();
    });
    // Integer periods make every code change fall on a whole second: one clock serves all rows.
    clock_ = std::make_unique<Clock>(1.0, [this](double) { render(true); });
    clock_->start();
    rebuild();
    showSyncState();
}

TodayPanel::~TodayPanel() {
    clock_->stop();
}

void TodayPanel::rebuild() {
    qDeleteAll(rows_);
    rows_.clear();
    for (const StoredToken& token : store_->tokens()) {
        auto* row = new CodeRow(token, true, this);
        row->setCursor(Qt::PointingHandCursor);
        row->setToolTip(tr("Click to copy the code"));
        rowsLayout_->addWidget(row);
        rows_.append(row);
    }
    empty_->setVisible(rows_.isEmpty());
    render(false);
    adjustSize();
}

void TodayPanel::render(bool tick) {
    const double now = timeIntervalSince1970();
    for (CodeRow* row : rows_)
        row->render(now, tick ? CodeRow::Change::tick : CodeRow::Change::restyle);
    dump();
}

void TodayPanel::showSyncState() {
    if (!problem_.isEmpty())
        syncState_->setText(problem_);
    else if (sync_->needsPasscode())
        syncState_->setText(tr("Sync is waiting for its passcode: open Marlock Companion to enter it."));
    else
        syncState_->clear();
    syncState_->setVisible(!syncState_->text().isEmpty());
    dump();
}

void TodayPanel::mousePressEvent(QMouseEvent* event) {
    for (CodeRow* row : rows_)
        if (row->geometry().contains(event->position().toPoint())) {
            copyCode(row->code());
            copied_->setText(tr("Copied the code of %1; it leaves the clipboard in 30 s.")
                                 .arg(row->token().displayName()));
            copied_->show();
            return;
        }
    QWidget::mousePressEvent(event);
}

void TodayPanel::dump() const {
    if (!stateDump::enabled())
        return;
    stateDump::write({{QStringLiteral("program"), QStringLiteral("marlock-today")},
                      {QStringLiteral("tokens"), stateDump::rows(rows_)},
                      {QStringLiteral("sync"), syncState_->text()}});
}

} // namespace companion
