#include "companion/AddTokenDialog.h"

#include "marlockCommon/Base32.h"
#include "marlockCommon/TokenError.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

using marlockCommon::OTPAlgorithm;
using marlockCommon::OTPType;

namespace companion {

namespace {

// The secret as people copy it: grouped in fours with spaces or dashes, in any case.
QString cleaned(const QString& secret) {
    QString text = secret.toUpper();
    text.remove(QLatin1Char(' '));
    text.remove(QLatin1Char('-'));
    while (text.endsWith(QLatin1Char('=')))
        text.chop(1);
    return text;
}

} // namespace

AddTokenDialog::AddTokenDialog(QWidget* parent)
    : QDialog(parent)
    , secret_(new QLineEdit(this))
    , issuer_(new QLineEdit(this))
    , account_(new QLineEdit(this))
    , type_(new QComboBox(this))
    , algorithm_(new QComboBox(this))
    , digits_(new QSpinBox(this))
    , period_(new QSpinBox(this))
    , problem_(new QLabel(this))
    , buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this)) {
    setWindowTitle(tr("Add by Typing the Secret"));
    auto* form = new QFormLayout(this);
    secret_->setPlaceholderText(tr("e.g. JBSW Y3DP EHPK 3PXP"));
    issuer_->setPlaceholderText(tr("the service, e.g. Example Mail"));
    account_->setPlaceholderText(tr("your name there, e.g. alice@example.org"));
    type_->addItem(tr("Time-based (TOTP)"), int(OTPType::totp));
    type_->addItem(tr("Counter-based (HOTP)"), int(OTPType::hotp));
    algorithm_->addItem(QStringLiteral("SHA1"), int(OTPAlgorithm::sha1));
    algorithm_->addItem(QStringLiteral("SHA256"), int(OTPAlgorithm::sha256));
    algorithm_->addItem(QStringLiteral("SHA512"), int(OTPAlgorithm::sha512));
    digits_->setRange(6, 8);
    period_->setRange(1, 3600);
    period_->setValue(30);
    period_->setSuffix(tr(" s"));
    form->addRow(tr("&Secret:"), secret_);
    form->addRow(tr("&Issuer:"), issuer_);
    form->addRow(tr("&Account:"), account_);
    form->addRow(tr("&Kind:"), type_);
    form->addRow(tr("A&lgorithm:"), algorithm_);
    form->addRow(tr("&Digits:"), digits_);
    form->addRow(tr("&Period:"), period_);
    problem_->setWordWrap(true);
    form->addRow(problem_);
    form->addRow(buttons_);
    connect(buttons_, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(secret_, &QLineEdit::textChanged, this, &AddTokenDialog::check);
    connect(type_, &QComboBox::currentIndexChanged, this,
            [this] { period_->setEnabled(type_->currentData().toInt() == int(OTPType::totp)); });
    check();
}

marlockCommon::TokenRecord AddTokenDialog::record() const {
    marlockCommon::TokenRecord record;
    record.type = OTPType(type_->currentData().toInt());
    record.issuer = issuer_->text().trimmed();
    record.account = account_->text().trimmed();
    try {
        record.secret = marlockCommon::Base32::decode(cleaned(secret_->text()));
    } catch (const marlockCommon::TokenError&) {
        record.secret.clear(); // refused by the store as a token that cannot compute codes
    }
    record.algorithm = OTPAlgorithm(algorithm_->currentData().toInt());
    record.digits = digits_->value();
    record.period = period_->value();
    return record;
}

void AddTokenDialog::check() {
    QString problem;
    const QString secret = cleaned(secret_->text());
    if (!secret.isEmpty()) {
        try {
            if (marlockCommon::Base32::decode(secret).isEmpty())
                problem = tr("The secret is empty.");
        } catch (const marlockCommon::TokenError&) {
            problem =
                tr("This is not a Base32 secret: it holds only the letters A to Z and the digits 2 to 7.");
        }
    }
    problem_->setText(problem);
    buttons_->button(QDialogButtonBox::Ok)->setEnabled(!secret.isEmpty() && problem.isEmpty());
}

} // namespace companion
