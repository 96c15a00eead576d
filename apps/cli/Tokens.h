#pragma once

#include "common/TokenStore.h"

#include <QCommandLineParser>
#include <QJsonObject>
#include <QString>

#include <memory>
#include <optional>

// What the commands that work on the stored tokens share: opening the store, finding the token
// a person named, and describing tokens in text and JSON. Failures are printed here, in the
// commands' words, so a command only returns the status.
namespace tokens {

// The token store of this machine, read, with sync wired to it (a companion::TokenSync child of
// the store); null after printing why it could not be read.
std::unique_ptr<companion::TokenStore> open(const QString& command);

// The token `reference` names: its position in "marlock list" (1, 2, …), its id, or its issuer,
// account or "issuer:account" (ignoring case) when only one token has it. Absent after printing
// why none (or which several) matched.
std::optional<companion::StoredToken> find(const companion::TokenStore& store, const QString& reference,
                                           const QString& command);

// Declares the argument that names one stored token, described alike in every command.
void addTokenArgument(QCommandLineParser& parser);

// The store, opened, and the token `reference` names in it (as open() and find()); absent after
// printing why.
struct NamedToken {
    std::unique_ptr<companion::TokenStore> store;
    companion::StoredToken token;
};
std::optional<NamedToken> openNamed(const QString& reference, const QString& command);

// The 1-based position of `id` in the store's order (0 when not held).
int position(const companion::TokenStore& store, const QString& id);

// "TOTP, SHA1, 6 digits, every 30 s" / "HOTP, SHA1, 6 digits, counter 4".
QString kind(const marlockCommon::TokenRecord& record);

// A token as scripts read it: position, id, issuer, account, type, algorithm, digits, and the
// period (TOTP) or counter (HOTP). Never the secret; the key URI (which holds it) only when
// `withUri`.
QJsonObject toJson(const companion::StoredToken& token, int position, bool withUri = false);

// Makes sure the session bus has the change announcements this process posted before it exits,
// so the companion and the panel hear a change made by a command that ends at once.
void flushAnnouncements();

} // namespace tokens
