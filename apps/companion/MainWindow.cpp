#include "companion/MainWindow.h"

#include "companion/AboutDialog.h"
#include "companion/AddTokenDialog.h"
#include "companion/QrCodeDialog.h"
#include "companion/RenameDialog.h"
#include "companion/SettingsDialog.h"

#include "common/TokenImport.h"
#include "common/TokenSync.h"
#include "gui/AppIcon.h"
#include "gui/CodeClipboard.h"
#include "gui/CodeRow.h"
#include "gui/PreferencesWatcher.h"
#include "gui/StateDump.h"

#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/timing/Clock.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QInputDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStatusBar>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <functional>

namespace companion {

namespace {

constexpr int idRole = Qt::UserRole;

bool isEnter(const QKeyEvent* key) {
    return key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
}

} // namespace

MainWindow::MainWindow(TokenStore* store, TokenSync* sync, QWidget* parent)
    : QMainWindow(parent)
    , store_(store)
    , sync_(sync)
    , search_(new QLineEdit(this))
    , list_(new QListWidget(this))
    , empty_(new QLabel(this))
    , syncState_(new QLabel(this)) {
    setWindowTitle(tr("Marlock Companion"));
    setWindowIcon(appIcon());
    resize(460, 560);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(8, 8, 8, 0);
    search_->setPlaceholderText(tr("Search: type to filter, ↓ to choose, Enter to copy"));
    search_->setClearButtonEnabled(true);
    search_->installEventFilter(this);
    layout->addWidget(search_);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    list_->setUniformItemSizes(true);
    list_->installEventFilter(this);
    layout->addWidget(list_, 1);
    empty_->setWordWrap(true);
    empty_->setAlignment(Qt::AlignCenter);
    layout->addWidget(empty_, 1);
    setCentralWidget(central);
    statusBar()->addPermanentWidget(syncState_);
    buildMenus();

    connect(search_, &QLineEdit::textChanged, this, &MainWindow::filter);
    connect(list_, &QListWidget::itemClicked, this, &MainWindow::copyCode);
    connect(list_, &QListWidget::itemActivated, this, &MainWindow::copyCode);
    connect(store_, &TokenStore::tokensChanged, this, &MainWindow::rebuild);
    connect(new PreferencesWatcher(this), &PreferencesWatcher::changed, this, [this] { render(false); });
    connect(sync_, &TokenSync::stateChanged, this, [this] {
        syncProblem_.clear();
        showSyncState();
    });
    connect(sync_, &TokenSync::problem, this, [this](const QString& message) {
        syncProblem_ = message;
        showSyncState();
        showMessage(message);
    });
    // Integer periods make every code change fall on a whole second: one clock serves all rows.
    clock_ = std::make_unique<Clock>(1.0, [this](double) { render(true); });
    clock_->start();
    rebuild();
    showSyncState();
    if (sync_->needsPasscode())
        QMetaObject::invokeMethod(this, &MainWindow::askForPasscode, Qt::QueuedConnection);
}

MainWindow::~MainWindow() {
    clock_->stop();
}

void MainWindow::buildMenus() {
    const auto command = [this](QMenu* menu, const QString& text, const QKeySequence& shortcut,
                                std::function<void()> slot) {
        QAction* action = menu->addAction(text);
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, std::move(slot));
        return action;
    };
    QMenu* tokens = menuBar()->addMenu(tr("&Tokens"));
    QAction* fromUri = command(tokens, tr("Add from &Key URI…"), QKeySequence::New, [this] { addFromUri(); });
    QAction* fromImage =
        command(tokens, tr("Add from QR &Picture…"), QKeySequence::Open, [this] { addFromImageFile(); });
    QAction* paste = command(tokens, tr("&Paste Key URI or QR Picture"), QKeySequence::Paste,
                             [this] { addFromClipboard(); });
    QAction* typed = command(tokens, tr("Add by &Typing the Secret…"), QKeySequence(tr("Ctrl+Shift+N")),
                             [this] { addTyped(); });
    tokens->addSeparator();
    QAction* copy = command(tokens, tr("&Copy Code"), QKeySequence::Copy, [this] { copyCode(); });
    QAction* qr =
        command(tokens, tr("Show &QR Code…"), QKeySequence(tr("Ctrl+Shift+Q")), [this] { showQrCode(); });
    command(tokens, tr("&Rename…"), QKeySequence(Qt::Key_F2), [this] { renameToken(); });
    command(tokens, tr("Move &Up"), QKeySequence(tr("Ctrl+Up")), [this] { moveToken(-1); });
    command(tokens, tr("Move &Down"), QKeySequence(tr("Ctrl+Down")), [this] { moveToken(1); });
    command(tokens, tr("&Delete…"), QKeySequence::Delete, [this] { removeToken(); });
    tokens->addSeparator();
    command(tokens, tr("&Find"), QKeySequence::Find, [this] { search_->setFocus(); });
    QAction* settings =
        command(tokens, tr("&Settings…"), QKeySequence::Preferences, [this] { openSettings(); });
    command(tokens, tr("&Quit"), QKeySequence::Quit, [] { QApplication::quit(); });
    command(menuBar()->addMenu(tr("&Help")), tr("&About Marlock Companion"), QKeySequence(),
            [this] { openAbout(); });

    QToolBar* bar = addToolBar(tr("Tokens"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    auto* add = new QToolButton(bar);
    add->setText(tr("Add"));
    add->setPopupMode(QToolButton::InstantPopup);
    add->addActions({fromUri, fromImage, paste, typed});
    bar->addWidget(add);
    bar->addAction(copy);
    bar->addAction(qr);
    bar->addAction(settings);
}

void MainWindow::rebuild() {
    const QString current = currentRow() ? currentRow()->token().id : QString();
    list_->clear();
    for (const StoredToken& token : store_->tokens()) {
        auto* item = new QListWidgetItem(list_);
        item->setData(idRole, token.id);
        auto* row = new CodeRow(token, false);
        item->setSizeHint(row->sizeHint());
        list_->setItemWidget(item, row);
        if (token.id == current)
            list_->setCurrentItem(item);
    }
    empty_->setText(tr("No tokens yet.\n\nAdd one with Tokens → Add: paste its key URI (Ctrl+V), open a "
                       "picture of its QR code (Ctrl+O), or type its secret."));
    filter(search_->text());
    render(false);
}

void MainWindow::render(bool tick) {
    const double now = timeIntervalSince1970();
    for (CodeRow* row : rows())
        row->render(now, tick ? CodeRow::Change::tick : CodeRow::Change::restyle);
    dump();
}

void MainWindow::filter(const QString& text) {
    const QString needle = text.trimmed();
    int shown = 0;
    for (int i = 0; i < list_->count(); ++i) {
        QListWidgetItem* item = list_->item(i);
        const auto& record = static_cast<CodeRow*>(list_->itemWidget(item))->token().record;
        const bool match = needle.isEmpty() || record.issuer.contains(needle, Qt::CaseInsensitive) ||
                           record.account.contains(needle, Qt::CaseInsensitive);
        item->setHidden(!match);
        shown += match ? 1 : 0;
    }
    if (shown > 0 && (!list_->currentItem() || list_->currentItem()->isHidden()))
        for (int i = 0; i < list_->count(); ++i)
            if (!list_->item(i)->isHidden()) {
                list_->setCurrentRow(i);
                break;
            }
    if (list_->count() > 0 && shown == 0)
        empty_->setText(tr("No token matches “%1”.").arg(needle));
    list_->setVisible(shown > 0);
    empty_->setVisible(shown == 0);
    dump();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress)
        return QMainWindow::eventFilter(watched, event);
    auto* key = static_cast<QKeyEvent*>(event);
    if (watched == search_) {
        if (isEnter(key)) {
            copyCode();
            return true;
        }
        if (key->key() == Qt::Key_Down || key->key() == Qt::Key_Up) {
            list_->setFocus();
            QApplication::sendEvent(list_, key);
            return true;
        }
    } else if (watched == list_) {
        if (isEnter(key)) {
            copyCode();
            return true;
        }
        // Typing in the list goes on searching, as in a file manager.
        const QString text = key->text();
        if (!text.isEmpty() && text.at(0).isPrint() && !(key->modifiers() & ~Qt::ShiftModifier)) {
            search_->setFocus();
            search_->insert(text);
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

QList<CodeRow*> MainWindow::rows() const {
    QList<CodeRow*> result;
    for (int i = 0; i < list_->count(); ++i)
        result.append(static_cast<CodeRow*>(list_->itemWidget(list_->item(i))));
    return result;
}

CodeRow* MainWindow::currentRow() const {
    QListWidgetItem* item = list_->currentItem();
    return item && !item->isHidden() ? static_cast<CodeRow*>(list_->itemWidget(item)) : nullptr;
}

void MainWindow::add(const marlockCommon::TokenRecord& record) {
    platform::Error error;
    const auto id = store_->add(record, &error);
    if (!id) {
        QMessageBox::warning(this, tr("Token not added"), error.description());
        return;
    }
    search_->clear();
    for (int i = 0; i < list_->count(); ++i)
        if (list_->item(i)->data(idRole).toString() == *id)
            list_->setCurrentRow(i);
    showMessage(tr("Added %1.").arg(store_->token(*id)->displayName()));
}

void MainWindow::addFromUri() {
    bool ok = false;
    const QString text = QInputDialog::getText(this, tr("Add from Key URI"),
                                               tr("The token's key URI (otpauth://…), as a service's setup "
                                                  "page or another authenticator gives it:"),
                                               QLineEdit::Normal, QString(), &ok);
    if (!ok || text.trimmed().isEmpty())
        return;
    try {
        add(tokenFromText(text));
    } catch (const ImportError& failure) {
        QMessageBox::warning(this, tr("Token not added"), failure.message());
    }
}

void MainWindow::addFromImageFile() {
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Open a Picture of a QR Code"), QString(),
                                     tr("Pictures (*.png *.jpg *.jpeg *.bmp *.gif *.webp);;All "
                                        "files (*)"));
    if (path.isEmpty())
        return;
    try {
        add(tokenFromImageFile(path));
    } catch (const ImportError& failure) {
        QMessageBox::warning(this, tr("Token not added"), failure.message());
    }
}

void MainWindow::addFromClipboard() {
    const QMimeData* data = QApplication::clipboard()->mimeData();
    const bool token = data && (data->hasImage() || data->text().trimmed().startsWith(
                                                        QLatin1String("otpauth:"), Qt::CaseInsensitive));
    // Other text pasted while searching is what to search for.
    if (search_->hasFocus() && !token) {
        search_->paste();
        return;
    }
    try {
        if (data && data->hasImage())
            add(tokenFromQrImage(qvariant_cast<QImage>(data->imageData()), tr("the pasted picture")));
        else if (data && data->hasText())
            add(tokenFromText(data->text()));
        else
            QMessageBox::information(
                this, tr("Nothing to paste"),
                tr("Copy a token's key URI, or a picture of its QR code, then paste again."));
    } catch (const ImportError& failure) {
        QMessageBox::warning(this, tr("Token not added"), failure.message());
    }
}

void MainWindow::addTyped() {
    AddTokenDialog dialog(this);
    if (dialog.exec() == QDialog::Accepted)
        add(dialog.record());
}

void MainWindow::showQrCode() {
    if (CodeRow* row = currentRow())
        QrCodeDialog(row->token(), this).exec();
}

void MainWindow::renameToken() {
    CodeRow* row = currentRow();
    if (!row)
        return;
    RenameDialog dialog(row->token().record, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    platform::Error error;
    if (!store_->rename(row->token().id, dialog.issuer(), dialog.account(), &error))
        QMessageBox::warning(this, tr("Not renamed"), error.description());
}

void MainWindow::moveToken(int by) {
    CodeRow* row = currentRow();
    if (!row)
        return;
    const int position = list_->currentRow() + by;
    if (position < 0 || position >= list_->count())
        return;
    platform::Error error;
    if (!store_->move(row->token().id, position, &error))
        QMessageBox::warning(this, tr("Not moved"), error.description());
}

void MainWindow::removeToken() {
    CodeRow* row = currentRow();
    if (!row)
        return;
    const StoredToken token = row->token();
    QMessageBox question(QMessageBox::Warning, tr("Delete %1?").arg(token.displayName()),
                         tr("Delete %1?").arg(token.displayName()), QMessageBox::Cancel, this);
    question.setInformativeText(
        tr("This cannot be undone. Without a copy of its key (its QR code or key URI) "
           "you can no longer sign in where it is needed; with sync on, it is also "
           "deleted on your other computers."));
    QPushButton* remove = question.addButton(tr("Delete"), QMessageBox::DestructiveRole);
    question.setDefaultButton(QMessageBox::Cancel);
    question.exec();
    if (question.clickedButton() != static_cast<QAbstractButton*>(remove))
        return;
    platform::Error error;
    if (!store_->remove(token.id, &error))
        QMessageBox::warning(this, tr("Not deleted"), error.description());
    else
        showMessage(tr("Deleted %1.").arg(token.displayName()));
}

void MainWindow::copyCode() {
    CodeRow* row = currentRow();
    if (!row)
        return;
    companion::copyCode(row->code());
    showMessage(
        tr("Copied the code of %1. It leaves the clipboard in 30 seconds.").arg(row->token().displayName()));
}

void MainWindow::openSettings() {
    SettingsDialog(sync_, this).exec();
    showSyncState();
    render(false);
}

void MainWindow::openAbout() {
    AboutDialog(this).exec();
}

void MainWindow::askForPasscode() {
    if (askingForPasscode_ || !sync_->needsPasscode())
        return;
    askingForPasscode_ = true;
    auto* dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("Sync Passcode"));
    dialog->setLabelText(tr("Sync is on and asks for its passcode each time. Enter it to bring in the tokens "
                            "of your other computers:"));
    dialog->setTextEchoMode(QLineEdit::Password);
    connect(dialog, &QInputDialog::textValueSelected, this, [this](const QString& passcode) {
        QString problem;
        if (!sync_->providePasscode(passcode, &problem)) {
            syncProblem_ = problem;
            showMessage(problem);
        }
        showSyncState();
    });
    connect(dialog, &QObject::destroyed, this, [this] { askingForPasscode_ = false; });
    dialog->open();
}

void MainWindow::showSyncState() {
    QString state;
    if (!syncProblem_.isEmpty())
        state = tr("Sync: problem");
    else if (sync_->needsPasscode())
        state = tr("Sync: passcode needed");
    else
        state = sync_->statusText().startsWith(QLatin1String("Sync is on")) ? tr("Sync on") : tr("Sync off");
    syncState_->setText(state);
    syncState_->setToolTip(syncProblem_.isEmpty() ? sync_->statusText() : syncProblem_);
    dump();
}

void MainWindow::showMessage(const QString& text) {
    statusBar()->showMessage(text, 8000);
}

void MainWindow::dump() const {
    if (!stateDump::enabled())
        return;
    const CodeRow* current = currentRow();
    stateDump::write({{QStringLiteral("program"), QStringLiteral("marlock-companion")},
                      {QStringLiteral("tokens"), stateDump::rows(rows())},
                      {QStringLiteral("current"), current ? current->token().displayName() : QString()},
                      {QStringLiteral("filter"), search_->text()},
                      {QStringLiteral("sync"), syncState_->text()},
                      {QStringLiteral("problem"), syncProblem_}});
}

} // namespace companion
