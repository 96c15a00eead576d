// marlock-today: the current codes at a glance. With a system tray, an icon there opens a compact
// panel (and closes it again); without one, the panel is a small window of its own.
#include "today/TodayPanel.h"

#include "common/TokenStore.h"
#include "common/TokenSync.h"
#include "gui/AppIcon.h"
#include "gui/Theme.h"

#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QCursor>
#include <QMenu>
#include <QMessageBox>
#include <QScreen>
#include <QSystemTrayIcon>

#include <algorithm>

using namespace companion;

namespace {

// Next to the tray icon, which is wherever the pointer is when it is clicked, kept on screen.
void placeNearPointer(QWidget* panel) {
    panel->adjustSize();
    const QPoint pointer = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(pointer);
    const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1920, 1080);
    QRect frame(QPoint(), panel->sizeHint());
    frame.moveCenter(pointer);
    frame.moveTop(pointer.y() > area.center().y() ? pointer.y() - frame.height() - 8 : pointer.y() + 8);
    frame.moveLeft(std::clamp(frame.left(), area.left(), area.right() - frame.width()));
    frame.moveTop(std::clamp(frame.top(), area.top(), area.bottom() - frame.height()));
    panel->move(frame.topLeft());
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("marlock-today"));
    QApplication::setApplicationDisplayName(QStringLiteral("Marlock Today"));
    QApplication::setDesktopFileName(QStringLiteral("org.marlock.companion.today"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("The current codes, from the system tray."));
    parser.addHelpOption();
    const QCommandLineOption theme(QStringLiteral("theme"),
                                   QStringLiteral("light or dark (default: the desktop's)."),
                                   QStringLiteral("theme"));
    const QCommandLineOption window(
        QStringLiteral("window"), QStringLiteral("Shows the panel as a window, also when there is a tray."));
    parser.addOptions({theme, window});
    parser.process(app);
    applyTheme(parser.value(theme));

    TokenStore store;
    platform::Error error;
    if (!store.reload(&error)) {
        QMessageBox::critical(nullptr, QStringLiteral("Marlock Today"),
                              QObject::tr("The tokens could not be read: %1").arg(error.description()));
        return 1;
    }
    TokenSync sync(&store, iCloudManager::sharedManager(), SyncSurface::window);
    sync.start();

    const bool tray = QSystemTrayIcon::isSystemTrayAvailable() && !parser.isSet(window);
    TodayPanel panel(&store, &sync);
    if (!tray) {
        panel.show();
        return QApplication::exec();
    }

    QApplication::setQuitOnLastWindowClosed(false);
    panel.setWindowFlags(Qt::Tool | Qt::WindowStaysOnTopHint);
    QSystemTrayIcon icon(appIcon());
    icon.setToolTip(QStringLiteral("Marlock Today"));
    QMenu menu;
    QObject::connect(menu.addAction(QObject::tr("Show codes")), &QAction::triggered, &panel, [&panel] {
        placeNearPointer(&panel);
        panel.show();
        panel.raise();
    });
    menu.addSeparator();
    QObject::connect(menu.addAction(QObject::tr("Quit")), &QAction::triggered, &app, &QApplication::quit);
    icon.setContextMenu(&menu);
    QObject::connect(&icon, &QSystemTrayIcon::activated, &panel,
                     [&panel](QSystemTrayIcon::ActivationReason why) {
                         if (why != QSystemTrayIcon::Trigger)
                             return;
                         if (panel.isVisible()) {
                             panel.hide();
                             return;
                         }
                         placeNearPointer(&panel);
                         panel.show();
                         panel.raise();
                         panel.activateWindow();
                     });
    icon.show();
    return QApplication::exec();
}
