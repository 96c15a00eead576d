#include "gui/CodeRow.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"
#include "marlockCompanionCommon/display/NumberScrollView.h"
#include "marlockCompanionCommon/graphics/Font.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"
#include "marlockCompanionCommon/views/ProgressView.h"

#include <QGridLayout>
#include <QLabel>

namespace companion {

namespace {

const QColor warningColor(0xd7, 0x3a, 0x2f);

} // namespace

CodeRow::CodeRow(const StoredToken& token, bool compact, QWidget* parent)
    : QWidget(parent)
    , issuer_(new QLabel(this))
    , account_(new QLabel(this))
    , codeView_(new NumberScrollView(this))
    , progress_(new ProgressView(this)) {
    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(compact ? 8 : 12, compact ? 4 : 8, compact ? 8 : 12, compact ? 2 : 4);
    layout->setVerticalSpacing(1);
    QFont issuerFont = issuer_->font();
    issuerFont.setBold(true);
    issuer_->setFont(issuerFont);
    account_->setForegroundRole(QPalette::PlaceholderText);
    // Rows of one window show codes in one font: their glyph images are drawn once and shared.
    codeView_->setImageCachePolicy(NumberScrollView::ImageCachePolicy::global());
    codeView_->setFont(graphics::Font::systemFont(compact ? 17 : 24));
    progress_->setLineWidth(compact ? 2 : 3);
    progress_->setTintColor(palette().color(QPalette::Highlight));
    layout->addWidget(issuer_, 0, 0);
    layout->addWidget(account_, 1, 0);
    layout->addWidget(codeView_, 0, 1, 2, 1, Qt::AlignRight | Qt::AlignVCenter);
    layout->addWidget(progress_, 2, 0, 1, 2);
    layout->setColumnStretch(0, 1);
    setToken(token);
}

void CodeRow::setToken(const StoredToken& token) {
    token_ = token;
    issuer_->setText(token.record.issuer.isEmpty() ? token.displayName() : token.record.issuer);
    account_->setText(token.record.account);
    account_->setVisible(!token.record.account.isEmpty() && !token.record.issuer.isEmpty());
    progress_->setVisible(token.record.type == marlockCommon::OTPType::totp);
}

void CodeRow::render(double now, Change change) {
    auto* preferences = ViewPreferencesManager::sharedManager();
    const auto generator = token_.record.toOTPToken();
    QString code;
    double remaining = 0;
    try {
        code = generator->password(now);
        remaining = generator->timeRemaining(now);
    } catch (const marlockCommon::TokenError&) {
        code = QString(token_.record.digits > 0 ? token_.record.digits : 6, QLatin1Char('-'));
    }
    const QString text = ViewPreferencesManager::formatCodeWithSeparator(code);
    const bool roll =
        change == Change::tick && !code_.isEmpty() && code != code_ && preferences->getAnimateCodeChanges();
    code_ = code;
    if (text != codeView_->text())
        codeView_->setText(text, roll);

    const bool warn =
        preferences->getChangeColorWhenCodeWillChange() && remaining > 0 && remaining <= warningSeconds;
    const QColor color = warn ? warningColor : palette().color(QPalette::WindowText);
    if (color != codeView_->textColor())
        codeView_->setTextColor(color);

    if (token_.record.type == marlockCommon::OTPType::totp && token_.record.period > 0) {
        const double left = remaining / token_.record.period;
        // The bar empties toward the right; when a new period starts it jumps back full.
        progress_->setProgress(1.0 - left, ProgressView::Direction::backward,
                               lastProgress_ >= 0 && 1.0 - left > lastProgress_);
        lastProgress_ = 1.0 - left;
    }
}

QString CodeRow::displayedCode() const {
    return codeView_->text();
}

QColor CodeRow::codeColor() const {
    return codeView_->textColor();
}

} // namespace companion
