// GLib comes first: Qt's keyword macros ("signals") would otherwise rewrite GDBus declarations.
#include <libsecret/secret.h>

#include "marlockCompanionCommon/platform/keychain/internal/SecretServiceStatus.h"

#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <mutex>

namespace platform::internal {
namespace {

using namespace KeychainStatusCode;

KeychainStatus missingObject(SecretServiceTarget target) {
    switch (target) {
    case SecretServiceTarget::item:
        return itemNotFound; // gone between the search and this call
    case SecretServiceTarget::collection:
        return noDefaultKeychain; // the default alias points nowhere
    case SecretServiceTarget::service:
    case SecretServiceTarget::connection:
        break;
    }
    // Our session or the service object is not there: the daemon went away under us, or what
    // owns the name is no Secret Service.
    return notAvailable;
}

KeychainStatus secretErrorStatus(gint code, SecretServiceTarget target) {
    switch (code) {
    case SECRET_ERROR_IS_LOCKED:
        return authFailed;
    case SECRET_ERROR_NO_SUCH_OBJECT:
        return missingObject(target);
    case SECRET_ERROR_ALREADY_EXISTS:
        return duplicateItem;
    default: // a protocol violation or an unreadable file: nothing a caller can act on
        return internalComponent;
    }
}

KeychainStatus dbusErrorStatus(gint code, SecretServiceTarget target) {
    switch (code) {
    // gnome-keyring answers a call on an object it does not have with "unknown method".
    case G_DBUS_ERROR_UNKNOWN_OBJECT:
    case G_DBUS_ERROR_UNKNOWN_METHOD:
    case G_DBUS_ERROR_UNKNOWN_INTERFACE:
        return missingObject(target);
    case G_DBUS_ERROR_ACCESS_DENIED:
    case G_DBUS_ERROR_AUTH_FAILED:
        return authFailed;
    case G_DBUS_ERROR_SERVICE_UNKNOWN:
    case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
    case G_DBUS_ERROR_NO_SERVER:
    case G_DBUS_ERROR_DISCONNECTED:
    case G_DBUS_ERROR_BAD_ADDRESS:
    case G_DBUS_ERROR_FILE_NOT_FOUND:
    case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
    case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
    case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
    case G_DBUS_ERROR_SPAWN_FAILED:
        return notAvailable;
    case G_DBUS_ERROR_NO_REPLY:
    case G_DBUS_ERROR_TIMEOUT:
    case G_DBUS_ERROR_TIMED_OUT:
    case G_DBUS_ERROR_IO_ERROR:
    case G_DBUS_ERROR_LIMITS_EXCEEDED:
        return io;
    default:
        return internalComponent;
    }
}

KeychainStatus ioErrorStatus(gint code) {
    switch (code) {
    case G_IO_ERROR_CANCELLED:
        return userCanceled;
    case G_IO_ERROR_TIMED_OUT:
    case G_IO_ERROR_NO_SPACE:
    case G_IO_ERROR_PARTIAL_INPUT:
    case G_IO_ERROR_MESSAGE_TOO_LARGE:
        return io;
    case G_IO_ERROR_NOT_FOUND: // the bus socket is not there
    case G_IO_ERROR_CONNECTION_REFUSED:
    case G_IO_ERROR_CONNECTION_CLOSED: // also a broken pipe
    case G_IO_ERROR_NOT_CONNECTED:
    case G_IO_ERROR_CLOSED:
        return notAvailable;
    default: // G_IO_ERROR_DBUS_ERROR among them: a remote error with a name GLib does not know
        return internalComponent;
    }
}

} // namespace

KeychainStatus secretServiceStatus(const GError* error, SecretServiceTarget target) {
    KeychainStatus status = internalComponent;
    if (error->domain == SECRET_ERROR)
        status = secretErrorStatus(error->code, target);
    else if (error->domain == G_DBUS_ERROR)
        status = dbusErrorStatus(error->code, target);
    else if (error->domain == G_IO_ERROR)
        status = ioErrorStatus(error->code);
    // Whatever stops a connection from being made means there is no keychain to talk to.
    if (target == SecretServiceTarget::connection && status == internalComponent)
        return notAvailable;
    return status;
}

KeychainStatus reportSecretServiceFailure(const char* call, const GError* error, SecretServiceTarget target) {
    const KeychainStatus status = secretServiceStatus(error, target);
    if (status == itemNotFound || status == duplicateItem)
        return status;
    const QString line = QStringLiteral("Secret Service %1 failed (keychain status %2): %3")
                             .arg(QLatin1String(call))
                             .arg(status)
                             .arg(QString::fromUtf8(error->message));
    static std::mutex mutex;
    static QString lastLogged;
    {
        std::lock_guard lock(mutex);
        if (line == lastLogged)
            return status;
        lastLogged = line;
    }
    systemLog(line);
    return status;
}

} // namespace platform::internal
