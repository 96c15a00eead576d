#include "marlockCompanionCommon/keychain/KeyedArchiver.h"

#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <QDateTime>
#include <QHash>

#include <limits>
#include <vector>

namespace platform {
namespace {

using PropertyList::Uid;

// Seconds between the Unix epoch and the archive's reference date, 2001-01-01 00:00:00 UTC.
constexpr double referenceDateOffset = 978307200.0;
// Deeper nesting than this is a runaway structure, not data.
constexpr int maximumDepth = 200;

QVariant uid(quint64 value) {
    return QVariant::fromValue(Uid{value});
}

} // namespace

struct KeyedArchiver::Private {
    bool secure = false;
    bool finished = false;
    int depth = 0;
    QVariantList objects{QStringLiteral("$null")};
    QHash<QString, quint64> strings;
    QHash<QString, quint64> classes;
    // The key-value maps being filled: the archive's "$top" first, then each object that is
    // encoding itself.
    std::vector<QVariantMap> containers{QVariantMap()};
    QByteArray bytes;

    [[noreturn]] static void fail(const QString& reason) {
        throw ArchiveException(KeyedArchive::invalidArchiveOperationException, reason);
    }

    void checkOpen() const {
        if (finished)
            fail(QStringLiteral("the archive is finished; nothing more can be encoded"));
    }

    quint64 append(const QVariant& value) {
        objects.append(value);
        return static_cast<quint64>(objects.size() - 1);
    }

    quint64 classReference(const QString& name, const QStringList& superclasses) {
        if (auto found = classes.constFind(name); found != classes.constEnd())
            return *found;
        QStringList chain{name};
        chain += superclasses;
        if (!chain.contains(QStringLiteral("NSObject")))
            chain.append(QStringLiteral("NSObject"));
        const quint64 id =
            append(QVariantMap{{QStringLiteral("$classname"), name}, {QStringLiteral("$classes"), chain}});
        classes.insert(name, id);
        return id;
    }

    // An object of a built-in class: its slot is taken before its members, so that parents come
    // before their children in "$objects", as other archivers write them.
    template <typename Fill>
    quint64 classObject(const QString& name, const QStringList& superclasses, Fill fill) {
        const quint64 id = append(QVariant());
        QVariantMap object;
        fill(object);
        object.insert(QStringLiteral("$class"), uid(classReference(name, superclasses)));
        objects[static_cast<qsizetype>(id)] = object;
        return id;
    }

    QVariantList references(const QVariantList& values, KeyedArchiver& archiver) {
        QVariantList result;
        result.reserve(values.size());
        for (const QVariant& value : values)
            result.append(uid(reference(value, archiver)));
        return result;
    }

    template <typename Map> quint64 dictionary(const Map& map, KeyedArchiver& archiver) {
        return classObject(QStringLiteral("NSDictionary"), {}, [&](QVariantMap& object) {
            QVariantList keys, values;
            for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
                keys.append(uid(reference(it.key(), archiver)));
                values.append(uid(reference(it.value(), archiver)));
            }
            object.insert(QStringLiteral("NS.keys"), keys);
            object.insert(QStringLiteral("NS.objects"), values);
        });
    }

    // An object that encodes itself: its fields go into a container of its own.
    quint64 custom(const marlockCommon::SecureCoding& object, KeyedArchiver& archiver) {
        const QString name = object.className();
        if (name.isEmpty() || name.startsWith(QLatin1Char('$')))
            fail(QStringLiteral("an object has no usable class name ('%1')").arg(name));
        if (++depth > maximumDepth)
            fail(QStringLiteral("objects nest deeper than %1 levels").arg(maximumDepth));
        const quint64 id = append(QVariant());
        containers.emplace_back();
        object.encode(archiver);
        QVariantMap fields = std::move(containers.back());
        containers.pop_back();
        fields.insert(QStringLiteral("$class"), uid(classReference(name, {})));
        objects[static_cast<qsizetype>(id)] = fields;
        --depth;
        return id;
    }

    quint64 reference(const QVariant& value, KeyedArchiver& archiver) {
        if (!value.isValid())
            return 0;
        if (++depth > maximumDepth)
            fail(QStringLiteral("objects nest deeper than %1 levels").arg(maximumDepth));
        const quint64 id = referenceAtDepth(value, archiver);
        --depth;
        return id;
    }

    quint64 referenceAtDepth(const QVariant& value, KeyedArchiver& archiver) {
        switch (value.metaType().id()) {
        case QMetaType::QString: {
            const QString text = value.toString();
            if (auto found = strings.constFind(text); found != strings.constEnd())
                return *found;
            const quint64 id = append(text);
            strings.insert(text, id);
            return id;
        }
        case QMetaType::Bool:
            return append(value.toBool());
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UChar:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Long:
        case QMetaType::LongLong:
            return append(value.toLongLong());
        case QMetaType::ULong:
        case QMetaType::ULongLong:
            if (value.toULongLong() > static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
                fail(QStringLiteral("the integer %1 is too large to archive").arg(value.toULongLong()));
            return append(value.toLongLong());
        case QMetaType::Float:
        case QMetaType::Double:
            return append(value.toDouble());
        case QMetaType::QByteArray:
            return append(value.toByteArray());
        case QMetaType::QDateTime: {
            const QDateTime date = value.toDateTime();
            if (!date.isValid())
                fail(QStringLiteral("an invalid date cannot be archived"));
            return classObject(QStringLiteral("NSDate"), {}, [&](QVariantMap& object) {
                object.insert(QStringLiteral("NS.time"),
                              static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0 - referenceDateOffset);
            });
        }
        case QMetaType::QStringList:
        case QMetaType::QVariantList: {
            const QVariantList list = value.toList();
            return classObject(QStringLiteral("NSArray"), {}, [&](QVariantMap& object) {
                object.insert(QStringLiteral("NS.objects"), references(list, archiver));
            });
        }
        case QMetaType::QVariantMap:
            return dictionary(value.toMap(), archiver);
        case QMetaType::QVariantHash:
            return dictionary(value.toHash(), archiver);
        case QMetaType::Nullptr:
            return classObject(QStringLiteral("NSNull"), {}, [](QVariantMap&) {});
        default:
            break;
        }
        if (value.metaType() == QMetaType::fromType<ArchivedSet>()) {
            const QVariantList members = value.value<ArchivedSet>().objects;
            return classObject(QStringLiteral("NSSet"), {}, [&](QVariantMap& object) {
                object.insert(QStringLiteral("NS.objects"), references(members, archiver));
            });
        }
        if (value.metaType() == QMetaType::fromType<std::shared_ptr<marlockCommon::SecureCoding>>()) {
            const auto object = value.value<std::shared_ptr<marlockCommon::SecureCoding>>();
            return object ? custom(*object, archiver) : 0;
        }
        fail(QStringLiteral("objects of type %1 cannot be archived")
                 .arg(QString::fromLatin1(value.typeName())));
    }

    void put(const QString& key, const QVariant& value) {
        checkOpen();
        containers.back().insert(key, value);
    }
};

KeyedArchiver::KeyedArchiver()
    : d(std::make_unique<Private>()) {}

KeyedArchiver::~KeyedArchiver() = default;

void KeyedArchiver::setRequiresSecureCoding(bool required) {
    d->secure = required;
}

bool KeyedArchiver::requiresSecureCoding() const {
    return d->secure;
}

void KeyedArchiver::encodeObject(const QVariant& object, const QString& key) {
    d->checkOpen();
    d->put(key, uid(d->reference(object, *this)));
}

void KeyedArchiver::encodeObject(const marlockCommon::SecureCoding& object, const QString& key) {
    d->checkOpen();
    d->put(key, uid(d->custom(object, *this)));
}

void KeyedArchiver::encodeString(const QString& value, const QString& key) {
    encodeObject(value, key);
}

void KeyedArchiver::encodeDouble(double value, const QString& key) {
    d->put(key, value);
}

void KeyedArchiver::encodeBool(bool value, const QString& key) {
    d->put(key, value);
}

void KeyedArchiver::encodeInt64(qint64 value, const QString& key) {
    d->put(key, value);
}

void KeyedArchiver::encodeData(const QByteArray& value, const QString& key) {
    d->put(key, value);
}

void KeyedArchiver::finishEncoding() {
    d->checkOpen();
    const QVariantMap archive{{QStringLiteral("$archiver"), KeyedArchive::archiverName},
                              {QStringLiteral("$version"), KeyedArchive::version},
                              {QStringLiteral("$top"), d->containers.front()},
                              {QStringLiteral("$objects"), d->objects}};
    Error error;
    std::optional<QByteArray> bytes = PropertyList::write(archive, PropertyList::Format::Binary, &error);
    if (!bytes)
        Private::fail(QStringLiteral("the archive could not be written: %1").arg(error.description()));
    d->bytes = std::move(*bytes);
    d->finished = true;
}

QByteArray KeyedArchiver::encodedData() const {
    return d->bytes;
}

QByteArray KeyedArchiver::archivedData(const QVariant& root, bool requiresSecureCoding) {
    KeyedArchiver archiver;
    archiver.setRequiresSecureCoding(requiresSecureCoding);
    archiver.encodeObject(root, KeyedArchive::rootObjectKey);
    archiver.finishEncoding();
    return archiver.encodedData();
}

} // namespace platform
