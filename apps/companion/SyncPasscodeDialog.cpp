#include "companion/SyncPasscodeDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace companion {

namespace {

constexpr int shortestNewPasscode = 8;

} // namespace

SyncPasscodeDialog::SyncPasscodeDialog(Kind kind, bool offerSaving, const QString& explanation,
                                       QWidget* parent)
    : QDialog(parent)
    , kind_(kind)
    , passcode_(new QLineEdit(this))
    , again_(new QLineEdit(this))
    , save_(
          new QCheckBox(tr("&Save the passcode in the keyring (otherwise it is asked for each time)"), this))
    , problem_(new QLabel(this))
    , buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this)) {
    setWindowTitle(tr("Sync Passcode"));
    auto* form = new QFormLayout(this);
    auto* text = new QLabel(explanation, this);
    text->setWordWrap(true);
    form->addRow(text);
    passcode_->setEchoMode(QLineEdit::Password);
    again_->setEchoMode(QLineEdit::Password);
    form->addRow(kind == Kind::newPasscode ? tr("&New passcode:") : tr("&Passcode:"), passcode_);
    if (kind == Kind::newPasscode)
        form->addRow(tr("&Again:"), again_);
    else
        again_->hide();
    save_->setChecked(true);
    save_->setVisible(offerSaving);
    form->addRow(save_);
    problem_->setWordWrap(true);
    form->addRow(problem_);
    form->addRow(buttons_);
    connect(buttons_, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(passcode_, &QLineEdit::textChanged, this, &SyncPasscodeDialog::check);
    connect(again_, &QLineEdit::textChanged, this, &SyncPasscodeDialog::check);
    check();
}

QString SyncPasscodeDialog::passcode() const {
    return passcode_->text();
}

bool SyncPasscodeDialog::save() const {
    return save_->isHidden() || save_->isChecked();
}

void SyncPasscodeDialog::check() {
    QString problem;
    if (kind_ == Kind::newPasscode) {
        if (!passcode_->text().isEmpty() && passcode_->text().size() < shortestNewPasscode)
            problem = tr("Choose at least %1 characters: the passcode is all that keeps the synced tokens "
                         "from someone who has the folder.")
                          .arg(shortestNewPasscode);
        else if (!again_->text().isEmpty() && again_->text() != passcode_->text())
            problem = tr("The two passcodes differ.");
    }
    problem_->setText(problem);
    const bool complete =
        !passcode_->text().isEmpty() && (kind_ == Kind::existingPasscode || !again_->text().isEmpty());
    buttons_->button(QDialogButtonBox::Ok)->setEnabled(complete && problem.isEmpty());
}

} // namespace companion
