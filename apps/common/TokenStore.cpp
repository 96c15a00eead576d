#include "common/TokenStore.h"

#include "marlockCommon/KeyURI.h"
#include "marlockCommon/TokenError.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <QPointer>
#include <QUuid>

#include <algorithm>

using marlockCommon::TokenRecord;
namespace KeychainStatusCode = platform::KeychainStatusCode;

namespace companion {

namespace {

const QString orderAccount = QStringLiteral("order");

QString tokenService() {
    return platform::Identity::bundleIdentifier() + QStringLiteral(".tokens");
}

QString orderService() {
    return tokenService() + QStringLiteral(".order");
}

platform::KeychainQuery tokenQuery(const std::optional<QString>& id) {
    return {platform::KeychainClass::genericPassword, tokenService(), id};
}

platform::KeychainQuery orderQuery() {
    return {platform::KeychainClass::genericPassword, orderService(), orderAccount};
}

platform::Error storeError(qint64 code, const QString& description) {
    return {TokenStore::errorDomain, code, {{platform::Error::localizedDescriptionKey, description}}};
}

// A keychain failure, in words a person can act on.
platform::Error keychainError(platform::KeychainStatus status) {
    QString advice;
    switch (status) {
    case KeychainStatusCode::notAvailable:
        advice = QStringLiteral("Tokens are kept in the desktop keyring: run this inside a desktop session "
                                "whose keyring (GNOME Keyring, KeePassXC or KWallet) is running.");
        break;
    case KeychainStatusCode::noDefaultKeychain:
        advice = QStringLiteral("The keyring has no default collection to keep tokens in: create one (for "
                                "example with Seahorse) and try again.");
        break;
    case KeychainStatusCode::authFailed:
    case KeychainStatusCode::userCanceled:
        advice = QStringLiteral("Unlock the keyring (for example by logging in again) and try again.");
        break;
    default:
        advice = QStringLiteral("Try again; if it keeps failing, check the keyring with Seahorse or "
                                "secret-tool.");
        break;
    }
    return storeError(status, platform::keychainErrorMessage(status) + QLatin1Char(' ') + advice);
}

// Equal when the two produce the same codes under the same name: the HOTP counter moves on by
// itself and says nothing about which token it is.
bool sameToken(const TokenRecord& a, const TokenRecord& b) {
    return a.type == b.type && a.secret == b.secret && a.algorithm == b.algorithm && a.digits == b.digits &&
           a.period == b.period && a.issuer == b.issuer && a.account == b.account;
}

bool isValid(const TokenRecord& record, platform::Error* error) {
    try {
        record.validate();
        return true;
    } catch (const marlockCommon::TokenError& failure) {
        platform::setError(error, storeError(TokenStore::invalidToken, failure.message()));
        return false;
    }
}

} // namespace

TokenStore::TokenStore(std::shared_ptr<platform::KeychainBackend> backend, QObject* parent)
    : QObject(parent)
    , backend_(backend ? std::move(backend) : platform::makeSecretServiceKeychainBackend())
    , center_(PLXDarwinNotificationCenter::otpDarwinNotificationCenter()) {
    QPointer<TokenStore> self(this);
    observer_ = center_->addObserverForName(didChangeDarwinNotification, nullptr,
                                            [self](const platform::Notification&) {
                                                if (self)
                                                    self->otherStoreChanged();
                                            });
}

TokenStore::~TokenStore() {
    center_->removeObserver(observer_.get());
}

bool TokenStore::read(std::vector<StoredToken>* tokens, platform::Error* error) const {
    std::vector<platform::KeychainRecord> items;
    platform::KeychainStatus status =
        backend_->find(tokenQuery(std::nullopt), {.data = true, .attributes = true}, &items);
    if (status != KeychainStatusCode::success && status != KeychainStatusCode::itemNotFound) {
        platform::setError(error, keychainError(status));
        return false;
    }
    std::vector<platform::KeychainRecord> orderItems;
    status = backend_->find(orderQuery(), {.data = true, .attributes = false, .limitOne = true}, &orderItems);
    if (status != KeychainStatusCode::success && status != KeychainStatusCode::itemNotFound) {
        platform::setError(error, keychainError(status));
        return false;
    }
    const QStringList order =
        orderItems.empty()
            ? QStringList()
            : QString::fromUtf8(orderItems.front().data).split(QLatin1Char('\n'), Qt::SkipEmptyParts);

    std::vector<StoredToken> found;
    for (const platform::KeychainRecord& item : items) {
        try {
            found.push_back({item.item.account, marlockCommon::KeyURI::parse(QString::fromUtf8(item.data))});
        } catch (const marlockCommon::TokenError&) {
            // Someone else's item under our service, or a damaged one: not ours to delete. Only
            // the id is logged; the content may hold a secret.
            if (!reportedDamagedItems_.contains(item.item.account)) {
                reportedDamagedItems_.insert(item.item.account);
                platform::systemLog(QStringLiteral("TokenStore: keychain item %1 does not hold a key URI; "
                                                   "it is not listed")
                                        .arg(item.item.account));
            }
        }
    }
    // Named tokens first, in the order's order; the rest keep the keychain's (oldest first).
    std::stable_sort(found.begin(), found.end(), [&order](const StoredToken& a, const StoredToken& b) {
        const auto rank = [&order](const QString& id) {
            const qsizetype at = order.indexOf(id);
            return at < 0 ? order.size() : at;
        };
        return rank(a.id) < rank(b.id);
    });
    *tokens = std::move(found);
    return true;
}

bool TokenStore::reload(platform::Error* error) {
    return refresh(error);
}

bool TokenStore::refresh(platform::Error* error) {
    std::vector<StoredToken> fresh;
    if (!read(&fresh, error))
        return false;
    if (fresh != tokens_) {
        tokens_ = std::move(fresh);
        emit tokensChanged(ChangeOrigin::elsewhere);
    }
    return true;
}

void TokenStore::otherStoreChanged() {
    // A failure here (a keyring locked meanwhile) keeps what is shown; the next change or an
    // explicit reload tries again.
    (void)refresh(nullptr);
}

std::vector<TokenRecord> TokenStore::records() const {
    std::vector<TokenRecord> result;
    result.reserve(tokens_.size());
    for (const StoredToken& stored : tokens_)
        result.push_back(stored.record);
    return result;
}

std::optional<StoredToken> TokenStore::token(const QString& id) const {
    const auto it = std::find_if(tokens_.begin(), tokens_.end(), [&id](const auto& t) { return t.id == id; });
    if (it == tokens_.end())
        return std::nullopt;
    return *it;
}

bool TokenStore::writeToken(const QString& id, const TokenRecord& record, bool isNew,
                            platform::Error* error) {
    const QByteArray data = marlockCommon::KeyURI::format(record).toUtf8();
    platform::KeychainStatus status;
    if (isNew) {
        const platform::KeychainItem item{platform::KeychainClass::genericPassword, tokenService(), id,
                                          platform::KeychainAccessible::whenUnlockedThisDeviceOnly,
                                          std::nullopt};
        status = backend_->add({item, data});
    } else {
        status = backend_->update(tokenQuery(id), {data, std::nullopt, std::nullopt});
    }
    if (status != KeychainStatusCode::success) {
        platform::setError(error, status == KeychainStatusCode::itemNotFound
                                      ? storeError(noSuchToken, QStringLiteral("The token is gone: another "
                                                                               "program removed it."))
                                      : keychainError(status));
        return false;
    }
    return true;
}

bool TokenStore::writeOrder(const std::vector<StoredToken>& tokens, platform::Error* error) {
    QStringList ids;
    for (const StoredToken& stored : tokens)
        ids << stored.id;
    const QByteArray data = ids.join(QLatin1Char('\n')).toUtf8();
    platform::KeychainStatus status = backend_->update(orderQuery(), {data, std::nullopt, std::nullopt});
    if (status == KeychainStatusCode::itemNotFound) {
        const platform::KeychainItem item{
            platform::KeychainClass::genericPassword, orderService(), orderAccount,
            platform::KeychainAccessible::whenUnlockedThisDeviceOnly, std::nullopt};
        status = backend_->add({item, data});
    }
    if (status != KeychainStatusCode::success) {
        platform::setError(error, keychainError(status));
        return false;
    }
    return true;
}

bool TokenStore::deleteToken(const QString& id, platform::Error* error) {
    const platform::KeychainStatus status = backend_->remove(tokenQuery(id));
    if (status != KeychainStatusCode::success && status != KeychainStatusCode::itemNotFound) {
        platform::setError(error, keychainError(status));
        return false;
    }
    return true;
}

void TokenStore::commit(std::vector<StoredToken> tokens) {
    const bool changed = tokens != tokens_;
    tokens_ = std::move(tokens);
    if (changed)
        emit tokensChanged(ChangeOrigin::thisStore);
    center_->postNotificationName(didChangeDarwinNotification);
}

std::optional<QString> TokenStore::add(const TokenRecord& record, platform::Error* error) {
    if (!isValid(record, error) || !refresh(error))
        return std::nullopt;
    for (const StoredToken& stored : tokens_)
        if (sameToken(stored.record, record)) {
            platform::setError(
                error,
                storeError(duplicateToken,
                           QStringLiteral("%1 is already stored with this key.").arg(stored.displayName())));
            return std::nullopt;
        }
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (!writeToken(id, record, true, error))
        return std::nullopt;
    std::vector<StoredToken> next = tokens_;
    next.push_back({id, record});
    // A failed order write leaves the new token unnamed by the order, which lists it last: where
    // it goes anyway.
    (void)writeOrder(next, nullptr);
    commit(std::move(next));
    return id;
}

bool TokenStore::update(const QString& id, const TokenRecord& record, platform::Error* error) {
    if (!isValid(record, error) || !refresh(error))
        return false;
    std::vector<StoredToken> next = tokens_;
    const auto it = std::find_if(next.begin(), next.end(), [&id](const auto& t) { return t.id == id; });
    if (it == next.end()) {
        platform::setError(error, storeError(noSuchToken, QStringLiteral("There is no token %1.").arg(id)));
        return false;
    }
    if (!writeToken(id, record, false, error))
        return false;
    it->record = record;
    commit(std::move(next));
    return true;
}

bool TokenStore::rename(const QString& id, const QString& issuer, const QString& account,
                        platform::Error* error) {
    if (!refresh(error))
        return false;
    const auto current = token(id);
    if (!current) {
        platform::setError(error, storeError(noSuchToken, QStringLiteral("There is no token %1.").arg(id)));
        return false;
    }
    TokenRecord record = current->record;
    record.issuer = issuer;
    record.account = account;
    return update(id, record, error);
}

bool TokenStore::move(const QString& id, int position, platform::Error* error) {
    if (!refresh(error))
        return false;
    std::vector<StoredToken> next = tokens_;
    const auto it = std::find_if(next.begin(), next.end(), [&id](const auto& t) { return t.id == id; });
    if (it == next.end()) {
        platform::setError(error, storeError(noSuchToken, QStringLiteral("There is no token %1.").arg(id)));
        return false;
    }
    if (position < 0 || static_cast<size_t>(position) >= next.size()) {
        platform::setError(
            error,
            storeError(noSuchPosition,
                       QStringLiteral("Position %1 is outside 1 to %2.").arg(position + 1).arg(next.size())));
        return false;
    }
    StoredToken moved = std::move(*it);
    next.erase(it);
    next.insert(next.begin() + position, std::move(moved));
    if (!writeOrder(next, error))
        return false;
    commit(std::move(next));
    return true;
}

bool TokenStore::remove(const QString& id, platform::Error* error) {
    if (!refresh(error))
        return false;
    std::vector<StoredToken> next = tokens_;
    const auto it = std::find_if(next.begin(), next.end(), [&id](const auto& t) { return t.id == id; });
    if (it == next.end()) {
        platform::setError(error, storeError(noSuchToken, QStringLiteral("There is no token %1.").arg(id)));
        return false;
    }
    if (!deleteToken(id, error))
        return false;
    next.erase(it);
    // A stale order only names a token that is gone, which reading skips.
    (void)writeOrder(next, nullptr);
    commit(std::move(next));
    return true;
}

bool TokenStore::replaceAll(const std::vector<TokenRecord>& records, platform::Error* error) {
    for (const TokenRecord& record : records)
        if (!isValid(record, error))
            return false;
    if (!refresh(error))
        return false;
    std::vector<StoredToken> unused = tokens_;
    std::vector<StoredToken> next;
    bool wrote = false;
    // Once something was written, a failure still tells everyone what the keychain now holds.
    const auto fail = [&] {
        if (wrote) {
            (void)refresh(nullptr);
            center_->postNotificationName(didChangeDarwinNotification);
        }
        return false;
    };
    for (const TokenRecord& record : records) {
        if (std::any_of(next.begin(), next.end(), [&](const auto& t) { return sameToken(t.record, record); }))
            continue;
        const auto kept =
            std::find_if(unused.begin(), unused.end(), [&](const auto& t) { return t.record == record; });
        if (kept != unused.end()) {
            next.push_back(std::move(*kept));
            unused.erase(kept);
            continue;
        }
        const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        if (!writeToken(id, record, true, error))
            return fail();
        wrote = true;
        next.push_back({id, record});
    }
    for (const StoredToken& gone : unused) {
        if (!deleteToken(gone.id, error))
            return fail();
        wrote = true;
    }
    if (!writeOrder(next, error))
        return fail();
    commit(std::move(next));
    return true;
}

} // namespace companion
