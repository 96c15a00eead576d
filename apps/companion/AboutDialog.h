#pragma once

#include <QDialog>

namespace companion {

// The version, and where to find the maker: web page, support, privacy policy, the phone app.
class AboutDialog : public QDialog {
    Q_OBJECT
public:
    explicit AboutDialog(QWidget* parent = nullptr);
};

} // namespace companion
