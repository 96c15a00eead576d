#pragma once

#include <QDialog>

class QCheckBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;

namespace companion {

// Asks for a sync passcode: a new one (typed twice, and at least eight characters, since it is
// the only defence of the synced data against guessing), or the existing one that opens the
// synced tokens. Optionally offers to save it in the keyring instead of asking each time.
class SyncPasscodeDialog : public QDialog {
    Q_OBJECT
public:
    enum class Kind { newPasscode, existingPasscode };
    SyncPasscodeDialog(Kind kind, bool offerSaving, const QString& explanation, QWidget* parent = nullptr);

    QString passcode() const;
    // Whether the person chose to save it (true when saving was not offered).
    bool save() const;

private:
    void check();

    Kind kind_;
    QLineEdit* passcode_;
    QLineEdit* again_;
    QCheckBox* save_;
    QLabel* problem_;
    QDialogButtonBox* buttons_;
};

} // namespace companion
