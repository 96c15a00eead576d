#pragma once

#include "common/StoredToken.h"

#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QObject>
#include <QSet>
#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

class PLXNotificationCenter;
namespace platform {
class KeychainBackend;
}

namespace companion {

// The tokens of this machine, in the user's order, kept in the keychain: one generic-password
// item per token (service "<bundle identifier>.tokens", account = the token's id, content = its
// key URI) plus one item holding the order (service "<bundle identifier>.tokens.order"). Nothing
// about a token is written anywhere else: issuers and account names say where a person has
// accounts, so they stay in the keychain with the secrets, and no settings file learns even how
// many tokens there are.
//
// Every process that opens a store (the companion, the Today panel, the command line) sees the
// same tokens. A change is announced across processes under TokenStoreDidChangeDarwinNotification;
// each store then reads the keychain again and emits tokensChanged() when what it holds changed,
// so a window follows another process's changes without polling.
//
// The order item is a hint: a token it does not name (two processes adding at once) comes after
// the named ones, in the order the keychain returns them (oldest first), and a named token that
// is gone is skipped. An item whose content is not a valid key URI is left alone and not listed.
//
// Failures come back as false or absent plus an error in TokenStore::errorDomain: the codes
// below, or a keychain status (negative, e.g. -25291 when there is no Secret Service), always
// with a sentence under platform::Error::localizedDescriptionKey.
//
//   companion::TokenStore store;
//   platform::Error error;
//   if (!store.reload(&error))
//       fail(error.description());
//   auto id = store.add(KeyURI::parse(uri), &error);
//   QObject::connect(&store, &TokenStore::tokensChanged, view, &View::refresh);
//
// Main thread only (changes arrive through the Qt event loop).
class TokenStore : public QObject {
    Q_OBJECT
public:
    static inline const QString errorDomain = QStringLiteral("companion.TokenStoreErrorDomain");
    enum ErrorCode : qint64 {
        duplicateToken = 1, // a token with the same key, issuer and account is stored already
        noSuchToken = 2,    // no token has the given id
        invalidToken = 3,   // the record cannot compute codes (see TokenRecord::validate)
        noSuchPosition = 4, // a position outside 0 … count-1
    };

    // Posted (with the product prefix) after every change this store writes.
    static inline const QString didChangeDarwinNotification =
        QStringLiteral("TokenStoreDidChangeDarwinNotification");

    // Where a change reported by tokensChanged() was made.
    enum class ChangeOrigin {
        thisStore, // through this object's add, update, move, remove or replaceAll
        elsewhere, // by another process or another store object
    };
    Q_ENUM(ChangeOrigin)

    // A store over the Secret Service, or over `backend` (tests use the in-memory one). Holds no
    // tokens until reload() or the first change announced by any process.
    explicit TokenStore(std::shared_ptr<platform::KeychainBackend> backend = nullptr,
                        QObject* parent = nullptr);
    ~TokenStore() override;
    Q_DISABLE_COPY(TokenStore)

    // Reads the tokens from the keychain. On failure the tokens held stay as they were.
    [[nodiscard]] bool reload(platform::Error* error = nullptr);

    // The tokens, in order, as last read or written.
    const std::vector<StoredToken>& tokens() const { return tokens_; }
    // The records alone, in order (what sync stores).
    std::vector<marlockCommon::TokenRecord> records() const;
    // The token with `id`, if held.
    std::optional<StoredToken> token(const QString& id) const;

    // Adds `record` at the end and returns its new id. duplicateToken when a token with the same
    // type, secret, algorithm, digits, period, issuer and account is stored (the counter of an
    // HOTP token does not count); invalidToken when it cannot compute codes.
    [[nodiscard]] std::optional<QString> add(const marlockCommon::TokenRecord& record,
                                             platform::Error* error = nullptr);
    // Replaces the record of token `id` (a rename, or an HOTP counter moving on).
    [[nodiscard]] bool update(const QString& id, const marlockCommon::TokenRecord& record,
                              platform::Error* error = nullptr);
    // Sets the issuer and account of token `id`.
    [[nodiscard]] bool rename(const QString& id, const QString& issuer, const QString& account,
                              platform::Error* error = nullptr);
    // Moves token `id` to `position` (0-based, in the order after the move).
    [[nodiscard]] bool move(const QString& id, int position, platform::Error* error = nullptr);
    // Deletes token `id` from the keychain.
    [[nodiscard]] bool remove(const QString& id, platform::Error* error = nullptr);
    // Makes the stored tokens exactly `records`, in that order: the way synced records from
    // another device are applied. Tokens whose record is unchanged keep their id; duplicates in
    // `records` are stored once; records that cannot compute codes are refused (invalidToken)
    // before anything is written.
    [[nodiscard]] bool replaceAll(const std::vector<marlockCommon::TokenRecord>& records,
                                  platform::Error* error = nullptr);

signals:
    // The tokens changed: after a successful change through this object (thisStore), or when a
    // reload, explicit or after another process's announcement, found them different (elsewhere).
    void tokensChanged(companion::TokenStore::ChangeOrigin origin);

private:
    bool read(std::vector<StoredToken>* tokens, platform::Error* error) const;
    bool refresh(platform::Error* error);
    bool writeOrder(const std::vector<StoredToken>& tokens, platform::Error* error);
    bool writeToken(const QString& id, const marlockCommon::TokenRecord& record, bool isNew,
                    platform::Error* error);
    bool deleteToken(const QString& id, platform::Error* error);
    void commit(std::vector<StoredToken> tokens);
    void otherStoreChanged();

    std::shared_ptr<platform::KeychainBackend> backend_;
    std::shared_ptr<PLXNotificationCenter> center_;
    std::shared_ptr<QObject> observer_;
    std::vector<StoredToken> tokens_;
    mutable QSet<QString> reportedDamagedItems_; // logged once each, not on every reload
};

} // namespace companion
