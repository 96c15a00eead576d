#include "Command.h"
#include "Console.h"
#include "PasscodeReader.h"
#include "Tokens.h"

#include "common/TokenSync.h"

#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QJsonObject>

namespace {

const QString name = QStringLiteral("sync");

int status(const companion::TokenSync& sync, bool json) {
    iCloudManager* manager = iCloudManager::sharedManager();
    if (!json) {
        console::out() << sync.statusText() << Qt::endl;
        return console::success;
    }
    QJsonObject object{
        {QStringLiteral("enabled"), manager->iCloudEnabled()},
        {QStringLiteral("passcodeSaved"), manager->iCloudEnabled() && manager->passcodeIsSaved()},
        {QStringLiteral("dataPresent"), manager->iCloudDataPresent()},
        {QStringLiteral("folder"), platform::UbiquitousKeyValueStore::defaultFolderPath()},
    };
    if (const auto error = manager->lastError(); error && manager->iCloudEnabled())
        object.insert(QStringLiteral("problem"),
                      companion::syncProblem(*error, companion::SyncSurface::commandLine));
    console::printJson(object);
    return console::success;
}

int enable(companion::TokenSync& sync, const companion::TokenStore& store, bool askEachTime) {
    iCloudManager* manager = iCloudManager::sharedManager();
    if (manager->iCloudEnabled())
        return console::fail(name, QStringLiteral("sync is on already (marlock sync status); to use another "
                                                  "passcode run marlock sync change-passcode"));
    QString problem;
    // Joining synced tokens needs the passcode chosen then; a first computer chooses one now.
    const auto passcode = manager->iCloudDataPresent()
                              ? passcode::read(QStringLiteral("Sync passcode: "), &problem)
                              : passcode::readNew(QStringLiteral("New sync passcode: "),
                                                  QStringLiteral("The same passcode again: "), &problem);
    if (!passcode)
        return console::fail(name, problem);
    if (!sync.enable(*passcode, !askEachTime, &problem))
        return console::fail(name, problem);
    tokens::flushAnnouncements();
    console::out() << "Sync is on: " << store.tokens().size() << " tokens through "
                   << platform::UbiquitousKeyValueStore::defaultFolderPath() << '.' << Qt::endl;
    if (askEachTime)
        console::out() << "The passcode is not saved, so changes made on this computer stay here until it "
                          "is saved (the companion's Settings, or switch sync off and on)."
                       << Qt::endl;
    return console::success;
}

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Syncs the tokens with your other computers through a shared folder (Syncthing, Nextcloud …),\n"
        "encrypted with a passcode of your choice. The passcode is typed at a prompt (or piped on\n"
        "standard input), never given as an argument.\n"
        "\n"
        "  marlock sync status             whether sync is on, the folder, the last problem\n"
        "  marlock sync enable             switches sync on, joining this computer's tokens with the\n"
        "                                  synced ones (the passcode is saved in the keyring)\n"
        "  marlock sync disable            switches sync off; the tokens stay on this computer\n"
        "  marlock sync change-passcode    re-encrypts the synced tokens with a new passcode\n"
        "  marlock sync reset --yes        erases the synced data from the folder and switches sync off\n"
        "\n"
        "The folder is $MARLOCK_CLOUD_FOLDER, else ~/.local/share/marlock-companion/cloud."));
    parser.addPositionalArgument(QStringLiteral("action"),
                                 QStringLiteral("status, enable, disable, change-passcode or reset."),
                                 QStringLiteral("[action]"));
    const QCommandLineOption ask(QStringLiteral("ask-each-time"),
                                 QStringLiteral("enable: keep the passcode in memory only, never saved."));
    const QCommandLineOption yes(QStringLiteral("yes"), QStringLiteral("reset: confirms the erasure."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("status: prints JSON for scripts."));
    parser.addOptions({ask, yes, json});
    if (const int code = console::parse(parser, name, arguments, 0, 1); code >= 0)
        return code;
    const QString action = parser.positionalArguments().value(0, QStringLiteral("status"));
    const QStringList actions{QStringLiteral("status"), QStringLiteral("enable"), QStringLiteral("disable"),
                              QStringLiteral("change-passcode"), QStringLiteral("reset")};
    if (!actions.contains(action))
        return console::fail(name,
                             QStringLiteral("no action is called \"%1\"; there are %2")
                                 .arg(action, actions.join(QStringLiteral(", "))),
                             console::usageError);
    if (action == QLatin1String("reset") && !parser.isSet(yes))
        return console::fail(name,
                             QStringLiteral("erasing the synced data cannot be undone (other computers lose "
                                            "their copy the next time they sync); run again with --yes"),
                             console::usageError);

    const auto store = tokens::open(name);
    if (!store)
        return console::badInput;
    auto* sync = store->findChild<companion::TokenSync*>();
    QString problem;
    if (action == QLatin1String("status"))
        return status(*sync, parser.isSet(json));
    if (action == QLatin1String("enable"))
        return enable(*sync, *store, parser.isSet(ask));
    if (!iCloudManager::sharedManager()->iCloudEnabled() && action != QLatin1String("reset"))
        return console::fail(name, QStringLiteral("sync is off (marlock sync enable switches it on)"));
    if (action == QLatin1String("disable")) {
        if (!sync->disable(&problem))
            return console::fail(name, problem);
        console::out()
            << "Sync is off. The tokens stay on this computer; the synced data stays in the folder."
            << Qt::endl;
    } else if (action == QLatin1String("reset")) {
        if (!sync->reset(&problem))
            return console::fail(name, problem);
        console::out() << "The synced data is erased and sync is off. The tokens stay on this computer."
                       << Qt::endl;
    } else {
        const auto passcode = passcode::readNew(QStringLiteral("New sync passcode: "),
                                                QStringLiteral("The same passcode again: "), &problem);
        if (!passcode)
            return console::fail(name, problem);
        if (!sync->changePasscode(*passcode, &problem))
            return console::fail(name, problem);
        console::out() << "The synced tokens are encrypted with the new passcode; enter it on your other "
                          "computers when they ask."
                       << Qt::endl;
    }
    tokens::flushAnnouncements();
    return console::success;
}

} // namespace

Command syncCommand() {
    return {name, QStringLiteral("Switches sync with other computers on or off, and more."), run};
}
