// Another process of the product (the widget, or the app on another computer) for the sync tests.
// Uses the shared manager over the suite, keychain and cloud folder its environment names.
//
//   sync_peer            reads commands on standard input, one per line, and answers "ok <command>"
//                        or "error <raw value or description>":
//                          start | enable <passcode> <save 0|1> | set <count> <tag> | passcode <text>
//                          | saved <passcode or -> | keys | records (answers "records <summary>" of
//                          the records read) | stored <passcode> (the same for the store's data now)
//                        and reports, as they happen, "event records <summary>", "event failed
//                        <reason>", "event settings-external", "event askeachtime-external <none|set>".
//   sync_peer hammer <passcode> <count>
//                        writes <count> different containers under "tokens" in turn, forever, saying
//                        "ready" after the first; for tests that kill it mid-write.
#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "tests/sync/SyncRecords.h"

#include <QCoreApplication>

#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

namespace {

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

void runCommand(const QStringList& words) {
    iCloudManager* manager = iCloudManager::sharedManager();
    const QString command = words.value(0);
    try {
        if (command == QLatin1String("start"))
            manager->start();
        else if (command == QLatin1String("enable"))
            manager->enableiCloudWithPassword(words.value(1), words.value(2) == QLatin1String("1"));
        else if (command == QLatin1String("set"))
            manager->setTokenRecords(synctest::sampleRecords(words.value(1).toInt(), 20, words.value(2)));
        else if (command == QLatin1String("passcode"))
            manager->setPasscode(words.value(1));
        else if (command == QLatin1String("saved"))
            manager->setSavedPasscode(words.value(1) == QLatin1String("-") ? std::nullopt
                                                                           : std::optional(words.value(1)));
        else if (command == QLatin1String("records"))
            return say(QStringLiteral("records ") + synctest::summary(manager->tokenRecords()));
        else if (command == QLatin1String("stored"))
            return say(QStringLiteral("records ") +
                       synctest::summary(manager->decryptTokenDataWithPassword(words.value(1))));
        else if (command == QLatin1String("keys"))
            return say(QStringLiteral("keys ") +
                       platform::UbiquitousKeyValueStore::defaultStore()->allKeys().join(','));
        else
            return say(QStringLiteral("error unknown command ") + command);
        say(QStringLiteral("ok ") + command);
    } catch (const iCloudManager::Failure& failure) {
        say(QStringLiteral("error ") + (failure.error() ? iCloudManagerErrorRawValue(*failure.error())
                                                        : failure.toPlatformError().description()));
    }
}

void reportEvents() {
    iCloudManager* manager = iCloudManager::sharedManager();
    auto& center = platform::NotificationCenter::defaultCenter();
    (void)center.addObserver(
        iCloudManager::tokenRecordsDidChangeExternallyNotification, manager, nullptr, [manager](const auto&) {
            say(QStringLiteral("event records ") + synctest::summary(manager->tokenRecords()));
        });
    (void)center.addObserver(iCloudManager::couldNotRetrieveTokenRecordsNotification, manager, nullptr,
                             [](const platform::Notification& n) {
                                 say(QStringLiteral("event failed ") +
                                     n.userInfo.value(iCloudManager::errorReasonKey).toString());
                             });
    (void)center.addObserver(iCloudManager::didChangeSettingsExternallyNotification, manager, nullptr,
                             [](const auto&) { say(QStringLiteral("event settings-external")); });
    (void)center.addObserver(iCloudManager::didChangeAskEachTimeExternallyNotification, manager, nullptr,
                             [manager](const auto&) {
                                 say(QStringLiteral("event askeachtime-external ") +
                                     (manager->passcode() ? QStringLiteral("set") : QStringLiteral("none")));
                             });
}

[[noreturn]] void hammer(const QString& passcode, int count) {
    std::vector<QByteArray> containers;
    for (int i = 0; i < count; ++i) {
        QVariantList tokens;
        for (const auto& record : synctest::sampleRecords(4, 30000, QString::number(i)))
            tokens.append(
                QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(record.toOTPToken())));
        containers.push_back(
            RNCryptor::encrypt(jr_archivedDataWithRootObject(tokens, true).value(), passcode));
    }
    auto* store = platform::UbiquitousKeyValueStore::defaultStore();
    for (size_t i = 0;; ++i) {
        store->setData(containers[i % containers.size()], QStringLiteral("tokens"));
        if (i == 0)
            say(QStringLiteral("ready"));
    }
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("hammer"))
        hammer(args.value(2), args.value(3).toInt());

    reportEvents();
    // Commands are read on a thread of their own and carried out on the main thread.
    std::thread([] {
        for (std::string line; std::getline(std::cin, line);)
            platform::dispatchAsyncMain(
                [words = QString::fromStdString(line).split(QLatin1Char(' '))] { runCommand(words); });
        platform::dispatchAsyncMain([] { QCoreApplication::quit(); });
    }).detach();
    return app.exec();
}
