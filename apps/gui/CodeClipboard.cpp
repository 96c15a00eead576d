#include "gui/CodeClipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>

namespace companion {

void copyCode(const QString& code, std::chrono::milliseconds lifetime) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    auto* data = new QMimeData;
    data->setText(code);
    // Asks clipboard managers (KDE's Klipper among them) not to keep it in their history.
    data->setData(QStringLiteral("x-kde-passwordManagerHint"), "secret");
    clipboard->setMimeData(data);
    QTimer::singleShot(lifetime, clipboard, [clipboard, code] {
        if (clipboard->text() == code)
            clipboard->clear();
    });
}

} // namespace companion
