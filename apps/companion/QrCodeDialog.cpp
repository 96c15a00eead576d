#include "companion/QrCodeDialog.h"

#include "common/QrCode.h"

#include "marlockCommon/KeyURI.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace companion {

QrCodeDialog::QrCodeDialog(const StoredToken& token, QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(tr("QR Code of %1").arg(token.displayName()));
    auto* layout = new QVBoxLayout(this);
    auto* note = new QLabel(tr("Scan this code with the authenticator on your phone to move %1 there. "
                               "It holds the token's secret: anyone who sees it can make its codes.")
                                .arg(token.displayName()),
                            this);
    note->setWordWrap(true);
    layout->addWidget(note);
    auto* picture = new QLabel(this);
    picture->setAlignment(Qt::AlignCenter);
    picture->setMinimumSize(280, 280);
    layout->addWidget(picture, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton* reveal = buttons->addButton(tr("&Show the Code"), QDialogButtonBox::ActionRole);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    const QString uri = marlockCommon::KeyURI::format(token.record);
    connect(reveal, &QPushButton::clicked, this, [picture, reveal, uri] {
        if (const auto image = QrCode::image(uri, 6))
            picture->setPixmap(QPixmap::fromImage(*image));
        else
            picture->setText(tr("This key is too long for a QR code."));
        reveal->setEnabled(false);
    });
}

} // namespace companion
