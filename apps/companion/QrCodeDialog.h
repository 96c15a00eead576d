#pragma once

#include "common/StoredToken.h"

#include <QDialog>

namespace companion {

// A token's key URI as a QR code, for a phone's authenticator to scan. It holds the secret, so
// the dialog says so and shows nothing until the person asks.
class QrCodeDialog : public QDialog {
    Q_OBJECT
public:
    QrCodeDialog(const StoredToken& token, QWidget* parent = nullptr);
};

} // namespace companion
