#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>
#include <QVariantMap>

namespace platform {

// An error in the error-object style: a domain naming the subsystem ("FXKeychainErrorDomain"),
// a numeric code within it, and free-form user info (a description under
// Error::localizedDescriptionKey, when there is one).
//
// Calls that can fail in this style take an optional `Error* error` out-parameter, last, and
// return bool or std::optional. A null pointer means "I don't want the details"; the callee
// writes the error only when it fails (except where a class documents otherwise).
//
//   platform::Error error;
//   if (!keychain.setObject(value, key, &error))
//       qWarning() << error.description();
struct MCC_EXPORT Error {
    QString domain;
    qint64 code = 0;
    QVariantMap userInfo;

    static inline const QString localizedDescriptionKey = QStringLiteral("NSLocalizedDescription");

    Error() = default;
    Error(QString domain, qint64 code, QVariantMap userInfo = {});

    // The text under localizedDescriptionKey, or "<domain> error <code>" when there is none.
    QString description() const;

    bool operator==(const Error&) const = default;
};

// Writes `value` to `*out` when `out` is not null. The one place the out-parameter rule lives.
inline void setError(Error* out, Error value) {
    if (out)
        *out = std::move(value);
}

} // namespace platform
