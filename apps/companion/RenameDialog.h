#pragma once

#include "marlockCommon/TokenRecord.h"

#include <QDialog>

class QLineEdit;

namespace companion {

// A token's issuer and account, edited.
class RenameDialog : public QDialog {
    Q_OBJECT
public:
    RenameDialog(const marlockCommon::TokenRecord& record, QWidget* parent = nullptr);
    QString issuer() const;
    QString account() const;

private:
    QLineEdit* issuer_;
    QLineEdit* account_;
};

} // namespace companion
