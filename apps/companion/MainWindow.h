#pragma once

#include "common/TokenStore.h"

#include <QMainWindow>

#include <memory>
#include <optional>

class Clock;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;

namespace companion {

class CodeRow;
class TokenSync;

// The companion window: every token with its code rolling and its period running out, a search
// field that filters as you type, and the commands to add (key URI, QR picture, typed secret),
// show as a QR code, rename, reorder, remove and copy. Everything works from the keyboard:
// typing filters, the arrows choose, Enter copies.
//
// It follows changes made anywhere (the Today panel, the command line, another computer through
// sync) through the token store's and the sync manager's notifications.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    // Neither is owned; both must outlive the window.
    MainWindow(TokenStore* store, TokenSync* sync, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The commands, also for the menus.
    void addFromUri();
    void addFromImageFile();
    void addFromClipboard();
    void addTyped();
    void showQrCode();
    void renameToken();
    void moveToken(int by);
    void removeToken();
    void copyCode();
    void openSettings();
    void openAbout();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildMenus();
    void rebuild();
    void render(bool tick);
    void filter(const QString& text);
    void add(const marlockCommon::TokenRecord& record);
    void askForPasscode();
    void showSyncState();
    void showMessage(const QString& text);
    void dump() const;
    CodeRow* currentRow() const;
    QList<CodeRow*> rows() const;

    TokenStore* store_;
    TokenSync* sync_;
    QLineEdit* search_;
    QListWidget* list_;
    QLabel* empty_;
    QLabel* syncState_;
    std::unique_ptr<Clock> clock_;
    QString syncProblem_;
    bool askingForPasscode_ = false;
};

} // namespace companion
