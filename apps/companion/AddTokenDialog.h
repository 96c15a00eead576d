#pragma once

#include "marlockCommon/TokenRecord.h"

#include <QDialog>

class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace companion {

// Adding a token by typing what a service's setup page shows when there is no QR code to scan:
// the secret (Base32, spaces and case as typed), issuer and account, and the rarely changed
// details (kind, algorithm, digits, period). OK stays disabled until the secret reads.
class AddTokenDialog : public QDialog {
    Q_OBJECT
public:
    explicit AddTokenDialog(QWidget* parent = nullptr);
    // The token as typed; valid once the dialog was accepted.
    marlockCommon::TokenRecord record() const;

private:
    void check();

    QLineEdit* secret_;
    QLineEdit* issuer_;
    QLineEdit* account_;
    QComboBox* type_;
    QComboBox* algorithm_;
    QSpinBox* digits_;
    QSpinBox* period_;
    QLabel* problem_;
    QDialogButtonBox* buttons_;
};

} // namespace companion
