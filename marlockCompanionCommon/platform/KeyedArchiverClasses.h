#pragma once

#include <QMetaType>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <optional>

namespace platform {

class KeyedArchiver;
class KeyedUnarchiver;

// A class that is not built into the keyed archiver, and how its objects encode and decode
// themselves. Objects travel in QVariants of `type`.
struct KeyedArchiverClass {
    // The "$classname" written to archives and looked up in allow-lists.
    QString name;
    // Its superclasses, nearest first ("NSObject" is implied): allowing one allows this class.
    QStringList superclasses;
    QMetaType type;
    bool supportsSecureCoding = true;
    // Writes the object's fields with the archiver's encoders.
    std::function<void(const QVariant& object, KeyedArchiver& archiver)> encode;
    // Reads them back (an ArchiveException from the unarchiver passes through).
    std::function<QVariant(KeyedUnarchiver& unarchiver)> decode;
};

// The process-wide table of such classes. Thread-safe.
namespace KeyedArchiverClasses {

// Adds `cls`, replacing a class of the same name or type.
void registerClass(KeyedArchiverClass cls);
std::optional<KeyedArchiverClass> forName(const QString& name);
std::optional<KeyedArchiverClass> forType(QMetaType type);

} // namespace KeyedArchiverClasses
} // namespace platform
