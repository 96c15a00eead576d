#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace companion {

class TokenSync;

// Settings: sync (on with a passcode, saved or asked each time; change the passcode; off; erase
// the synced data; the cloud folder) and the three display preferences, which apply at once in
// every program.
class SettingsDialog : public QDialog {
    Q_OBJECT
public:
    // `sync` is not owned and must outlive the dialog.
    SettingsDialog(TokenSync* sync, QWidget* parent = nullptr);

private:
    void syncToggled(bool on);
    void changePasscode();
    void eraseSyncedData();
    void chooseFolder();
    void showSyncState();
    void report(const QString& problem);

    TokenSync* sync_;
    QCheckBox* syncOn_;
    QLabel* syncState_;
    QLabel* problem_;
    QPushButton* changePasscode_;
    QPushButton* erase_;
    QLineEdit* folder_;
    QPushButton* chooseFolder_;
    QComboBox* separator_;
    QCheckBox* changeColor_;
    QCheckBox* animate_;
};

} // namespace companion
