// marlock-companion: the window of the tokens of this machine.
//
//   marlock-companion [--theme light|dark] [--settings]
#include "companion/MainWindow.h"

#include "common/TokenStore.h"
#include "common/TokenSync.h"
#include "gui/Theme.h"

#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QMessageBox>

using namespace companion;

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("marlock-companion"));
    QApplication::setApplicationDisplayName(QStringLiteral("Marlock Companion"));
    QApplication::setDesktopFileName(QStringLiteral("org.marlock.companion"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("The one-time codes of your accounts."));
    parser.addHelpOption();
    const QCommandLineOption theme(QStringLiteral("theme"),
                                   QStringLiteral("light or dark (default: the desktop's)."),
                                   QStringLiteral("theme"));
    const QCommandLineOption settings(QStringLiteral("settings"),
                                      QStringLiteral("Opens the settings first, then the window."));
    parser.addOptions({theme, settings});
    parser.process(app);
    applyTheme(parser.value(theme));

    TokenStore store;
    platform::Error error;
    if (!store.reload(&error)) {
        QMessageBox::critical(nullptr, QStringLiteral("Marlock Companion"),
                              QObject::tr("The tokens could not be read: %1").arg(error.description()));
        return 1;
    }
    TokenSync sync(&store, iCloudManager::sharedManager(), SyncSurface::window);
    sync.start();
    MainWindow window(&store, &sync);
    // With --settings (the panel's way in, say) the settings come first, then the window.
    if (parser.isSet(settings))
        QMetaObject::invokeMethod(
            &window,
            [&window] {
                window.openSettings();
                window.show();
            },
            Qt::QueuedConnection);
    else
        window.show();
    return QApplication::exec();
}
