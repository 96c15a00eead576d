#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QMetaType>
#include <QString>
#include <QVariantList>

#include <exception>
#include <string>

// The names and value types shared by KeyedArchiver and KeyedUnarchiver.
namespace platform {

namespace KeyedArchive {
// The key under which the archive helpers store the root object.
inline const QString rootObjectKey = QStringLiteral("root");
// What the archiver writes under "$archiver" and "$version".
inline const QString archiverName = QStringLiteral("NSKeyedArchiver");
constexpr qint64 version = 100000;
// The names of the two archive exceptions.
inline const QString invalidArchiveOperationException = QStringLiteral("NSInvalidArchiveOperationException");
inline const QString invalidUnarchiveOperationException =
    QStringLiteral("NSInvalidUnarchiveOperationException");
} // namespace KeyedArchive

// Thrown by the archiver (an object it cannot encode) and the unarchiver (anything wrong with the
// archive or a class it may not decode): an exception name and a reason, like the platform's
// exception objects.
class MCC_EXPORT ArchiveException : public std::exception {
public:
    ArchiveException(QString name, QString reason);
    const QString& name() const { return name_; }
    const QString& reason() const { return reason_; }
    const char* what() const noexcept override { return what_.c_str(); }

private:
    QString name_;
    QString reason_;
    std::string what_;
};

// An unordered collection of distinct objects ("NSSet"). Archived and unarchived as a set; the
// order of `objects` carries no meaning.
struct MCC_EXPORT ArchivedSet {
    QVariantList objects;
    bool operator==(const ArchivedSet&) const = default;
};

} // namespace platform

Q_DECLARE_METATYPE(platform::ArchivedSet)
