#include "companion/RenameDialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>

namespace companion {

RenameDialog::RenameDialog(const marlockCommon::TokenRecord& record, QWidget* parent)
    : QDialog(parent)
    , issuer_(new QLineEdit(record.issuer, this))
    , account_(new QLineEdit(record.account, this)) {
    setWindowTitle(tr("Rename"));
    auto* form = new QFormLayout(this);
    form->addRow(tr("&Issuer:"), issuer_);
    form->addRow(tr("&Account:"), account_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    issuer_->selectAll();
}

QString RenameDialog::issuer() const {
    return issuer_->text().trimmed();
}

QString RenameDialog::account() const {
    return account_->text().trimmed();
}

} // namespace companion
