#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QMetaType>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

namespace platform {

// A posted notification: a name, the object that posted it (may be null; not owned, and null
// once that object is destroyed) and free-form user info.
struct MCC_EXPORT Notification {
    QString name;
    QPointer<QObject> object;
    QVariantMap userInfo;
};

} // namespace platform

Q_DECLARE_METATYPE(platform::Notification)
