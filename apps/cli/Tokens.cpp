#include "Tokens.h"

#include "Console.h"

#include "common/TokenSync.h"

#include "marlockCommon/KeyURI.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QDBusConnection>
#include <QDBusMessage>

using companion::StoredToken;
using companion::TokenStore;

namespace tokens {

std::unique_ptr<TokenStore> open(const QString& command) {
    auto store = std::make_unique<TokenStore>();
    platform::Error error;
    if (!store->reload(&error)) {
        console::fail(command, error.description());
        return nullptr;
    }
    // With sync on, the synced records are applied before the command looks at the tokens, and
    // the command's own change is published; a sync problem is a warning, not the command's failure.
    auto* sync = new companion::TokenSync(store.get(), iCloudManager::sharedManager(),
                                          companion::SyncSurface::commandLine, store.get());
    QObject::connect(sync, &companion::TokenSync::problem, [command](const QString& message) {
        console::err() << "marlock " << command << ": sync: " << message << Qt::endl;
    });
    sync->start();
    return store;
}

std::optional<StoredToken> find(const TokenStore& store, const QString& reference, const QString& command) {
    const auto& all = store.tokens();
    bool isNumber = false;
    const int number = reference.toInt(&isNumber);
    if (isNumber) {
        if (number >= 1 && static_cast<size_t>(number) <= all.size())
            return all[static_cast<size_t>(number - 1)];
        console::fail(command, QStringLiteral("there is no token number %1 (marlock list shows %2)")
                                   .arg(number)
                                   .arg(all.size()));
        return std::nullopt;
    }
    for (const StoredToken& token : all)
        if (token.id == reference)
            return token;

    std::vector<int> matches;
    for (size_t i = 0; i < all.size(); ++i) {
        const auto& record = all[i].record;
        const auto same = [&reference](const QString& text) {
            return !text.isEmpty() && text.compare(reference, Qt::CaseInsensitive) == 0;
        };
        if (same(record.issuer) || same(record.account) ||
            same(record.issuer + QLatin1Char(':') + record.account))
            matches.push_back(static_cast<int>(i));
    }
    if (matches.size() == 1)
        return all[static_cast<size_t>(matches.front())];
    if (matches.empty()) {
        console::fail(command, QStringLiteral("no token is called \"%1\" (see marlock list)").arg(reference));
        return std::nullopt;
    }
    QStringList names;
    for (int i : matches)
        names << QStringLiteral("%1. %2").arg(i + 1).arg(all[static_cast<size_t>(i)].displayName());
    console::fail(command, QStringLiteral("\"%1\" could be any of %2; name it by its number")
                               .arg(reference, names.join(QStringLiteral(", "))));
    return std::nullopt;
}

int position(const TokenStore& store, const QString& id) {
    const auto& all = store.tokens();
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].id == id)
            return static_cast<int>(i) + 1;
    return 0;
}

QString kind(const marlockCommon::TokenRecord& record) {
    const QString base = QStringLiteral("%1, %2, %3 digits")
                             .arg(marlockCommon::typeName(record.type).toUpper(),
                                  marlockCommon::algorithmName(record.algorithm))
                             .arg(record.digits);
    if (record.type == marlockCommon::OTPType::hotp)
        return base + QStringLiteral(", counter %1").arg(record.counter);
    return base + QStringLiteral(", every %1 s").arg(record.period);
}

QJsonObject toJson(const StoredToken& token, int position, bool withUri) {
    const auto& record = token.record;
    QJsonObject object{
        {QStringLiteral("position"), position},
        {QStringLiteral("id"), token.id},
        {QStringLiteral("issuer"), record.issuer},
        {QStringLiteral("account"), record.account},
        {QStringLiteral("type"), marlockCommon::typeName(record.type)},
        {QStringLiteral("algorithm"), marlockCommon::algorithmName(record.algorithm)},
        {QStringLiteral("digits"), record.digits},
    };
    if (record.type == marlockCommon::OTPType::hotp)
        object.insert(QStringLiteral("counter"), static_cast<qint64>(record.counter));
    else
        object.insert(QStringLiteral("period"), record.period);
    if (withUri)
        object.insert(QStringLiteral("uri"), marlockCommon::KeyURI::format(record));
    return object;
}

void flushAnnouncements() {
    // Signals leave in the order they were queued: once a call made after them has its answer,
    // the bus has them all.
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected())
        bus.call(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
}

void addTokenArgument(QCommandLineParser& parser) {
    parser.addPositionalArgument(
        QStringLiteral("token"),
        QStringLiteral("Its number in marlock list, its issuer, account or issuer:account."));
}

std::optional<NamedToken> openNamed(const QString& reference, const QString& command) {
    auto store = open(command);
    if (!store)
        return std::nullopt;
    auto token = find(*store, reference, command);
    if (!token)
        return std::nullopt;
    return NamedToken{std::move(store), std::move(*token)};
}

} // namespace tokens
