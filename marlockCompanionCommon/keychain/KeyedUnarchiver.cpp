#include "marlockCompanionCommon/keychain/KeyedUnarchiver.h"

#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <QDateTime>
#include <QHash>
#include <QSet>

#include <cmath>
#include <limits>
#include <vector>

namespace platform {
namespace {

using PropertyList::Uid;

constexpr double referenceDateOffset = 978307200.0;
constexpr int maximumDepth = 200;
constexpr qsizetype maximumObjects = 2'000'000;
constexpr qint64 maximumExpandedValues = 10'000'000;
constexpr qsizetype maximumArchiveBytes = 64 * 1024 * 1024;

const QString kNSObject = QStringLiteral("NSObject");

[[noreturn]] void fail(const QString& reason) {
    throw ArchiveException(KeyedArchive::invalidUnarchiveOperationException, reason);
}

bool isUid(const QVariant& value) {
    return value.metaType() == QMetaType::fromType<Uid>();
}

bool isInteger(const QVariant& value) {
    return value.metaType().id() == QMetaType::LongLong || value.metaType().id() == QMetaType::ULongLong ||
           value.metaType().id() == QMetaType::Int;
}

enum class Kind { Array, Dictionary, Set, String, Number, Data, Date, Null, Custom };

// A class the unarchiver can instantiate: what it is and what it derives from.
struct ClassInfo {
    Kind kind;
    QString name;
    QStringList superclasses;
    std::optional<marlockCommon::SecureCodingDecodeFunction> decode;
};

std::optional<ClassInfo> builtinClass(const QString& name) {
    static const QHash<QString, std::pair<Kind, QStringList>> table = {
        {QStringLiteral("NSArray"), {Kind::Array, {}}},
        {QStringLiteral("NSMutableArray"), {Kind::Array, {QStringLiteral("NSArray")}}},
        {QStringLiteral("NSDictionary"), {Kind::Dictionary, {}}},
        {QStringLiteral("NSMutableDictionary"), {Kind::Dictionary, {QStringLiteral("NSDictionary")}}},
        {QStringLiteral("NSSet"), {Kind::Set, {}}},
        {QStringLiteral("NSMutableSet"), {Kind::Set, {QStringLiteral("NSSet")}}},
        {QStringLiteral("NSString"), {Kind::String, {}}},
        {QStringLiteral("NSMutableString"), {Kind::String, {QStringLiteral("NSString")}}},
        {QStringLiteral("NSNumber"), {Kind::Number, {QStringLiteral("NSValue")}}},
        {QStringLiteral("NSData"), {Kind::Data, {}}},
        {QStringLiteral("NSMutableData"), {Kind::Data, {QStringLiteral("NSData")}}},
        {QStringLiteral("NSDate"), {Kind::Date, {}}},
        {QStringLiteral("NSNull"), {Kind::Null, {}}},
    };
    const auto found = table.constFind(name);
    if (found == table.constEnd())
        return std::nullopt;
    return ClassInfo{found->first, name, found->second, std::nullopt};
}

std::optional<ClassInfo> classNamed(const QString& name) {
    if (auto builtin = builtinClass(name))
        return builtin;
    if (auto decode = marlockCommon::secureCodingClass(name))
        return ClassInfo{Kind::Custom, name, {}, std::move(decode)};
    return std::nullopt;
}

} // namespace

struct KeyedUnarchiver::Private {
    bool secure = true;
    bool finished = false;
    QVariantList objects;
    // The key-value maps being read: "$top" first, then each object decoding itself.
    std::vector<QVariantMap> containers;
    // How many values each container's decoded fields expand to so far.
    std::vector<qint64> containerExpanded;
    QSet<quint64> inProgress;
    // Decoded objects by (reference, allow-list), with how many values each expands to.
    QHash<QPair<quint64, QString>, std::pair<QVariant, qint64>> cache;
    int depth = 0;
    qint64 lastExpanded = 0;
    // The first failure a self-decoding class recorded.
    std::optional<QString> failure;

    void checkOpen() const {
        if (finished)
            fail(QStringLiteral("decoding is finished"));
    }

    void checkAllowed(const ClassInfo& cls, const QStringList& allowed) const {
        if (!secure)
            return;
        if (allowed.contains(cls.name) || allowed.contains(kNSObject))
            return;
        for (const QString& super : cls.superclasses)
            if (allowed.contains(super))
                return;
        fail(QStringLiteral("value of class '%1' is not allowed here (allowed: %2)")
                 .arg(cls.name, allowed.join(QStringLiteral(", "))));
    }

    quint64 uidOf(const QVariant& value, const QString& what) const {
        if (!isUid(value))
            fail(QStringLiteral("%1 is not an object reference").arg(what));
        const quint64 id = value.value<Uid>().value;
        if (id >= static_cast<quint64>(objects.size()))
            fail(QStringLiteral("%1 refers to object %2 of %3").arg(what).arg(id).arg(objects.size()));
        return id;
    }

    ClassInfo classOf(const QVariantMap& object) const {
        const quint64 id = uidOf(object.value(QStringLiteral("$class")), QStringLiteral("$class"));
        const QVariant description = objects.at(static_cast<qsizetype>(id));
        if (description.metaType().id() != QMetaType::QVariantMap)
            fail(QStringLiteral("object %1 is not a class description").arg(id));
        const QVariant name = description.toMap().value(QStringLiteral("$classname"));
        if (name.metaType().id() != QMetaType::QString)
            fail(QStringLiteral("class description %1 has no $classname").arg(id));
        std::optional<ClassInfo> cls = classNamed(name.toString());
        if (!cls)
            fail(QStringLiteral("unknown class '%1'").arg(name.toString()));
        return *cls;
    }

    // The object `id` refers to, decoded with `allowed`. lastExpanded receives how many values it
    // expands to (shared references count every time they appear).
    QVariant resolve(quint64 id, const QStringList& allowed, KeyedUnarchiver& self) {
        lastExpanded = 1;
        if (id == 0)
            return QVariant();
        const QVariant& raw = objects.at(static_cast<qsizetype>(id));
        switch (raw.metaType().id()) {
        case QMetaType::QString:
            checkAllowed(*builtinClass(QStringLiteral("NSString")), allowed);
            return raw;
        case QMetaType::Bool:
        case QMetaType::Int:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
            checkAllowed(*builtinClass(QStringLiteral("NSNumber")), allowed);
            return raw;
        case QMetaType::QByteArray:
            checkAllowed(*builtinClass(QStringLiteral("NSData")), allowed);
            return raw;
        case QMetaType::QVariantMap:
            break;
        default:
            fail(QStringLiteral("object %1 has an unexpected type (%2)")
                     .arg(id)
                     .arg(QString::fromLatin1(raw.typeName())));
        }
        const QVariantMap object = raw.toMap();
        const ClassInfo cls = classOf(object);
        checkAllowed(cls, allowed);

        const QPair<quint64, QString> cacheKey(id, allowed.join(QLatin1Char('\n')));
        if (auto cached = cache.constFind(cacheKey); cached != cache.constEnd()) {
            lastExpanded = cached->second;
            return cached->first;
        }
        if (inProgress.contains(id))
            fail(QStringLiteral("object %1 refers to itself").arg(id));
        if (depth >= maximumDepth)
            fail(QStringLiteral("objects nest deeper than %1 levels").arg(maximumDepth));
        inProgress.insert(id);
        ++depth;
        qint64 expanded = 1;
        QVariant value = construct(cls, object, allowed, self, &expanded);
        --depth;
        inProgress.remove(id);
        cache.insert(cacheKey, {value, expanded});
        lastExpanded = expanded;
        return value;
    }

    void count(qint64* expanded) const {
        *expanded += lastExpanded;
        if (*expanded > maximumExpandedValues)
            fail(QStringLiteral("the archive expands to more than %1 values").arg(maximumExpandedValues));
    }

    QVariantList list(const QVariantMap& object, const QString& key) const {
        const QVariant value = object.value(key);
        if (value.metaType().id() != QMetaType::QVariantList)
            fail(QStringLiteral("%1 is not an array").arg(key));
        return value.toList();
    }

    QVariantList members(const QVariantMap& object, const QString& key, const QStringList& allowed,
                         KeyedUnarchiver& self, qint64* expanded) {
        QVariantList result;
        for (const QVariant& reference : list(object, key)) {
            const quint64 id = uidOf(reference, key);
            if (id == 0)
                fail(QStringLiteral("%1 holds nil").arg(key));
            result.append(resolve(id, allowed, self));
            count(expanded);
        }
        return result;
    }

    QVariant construct(const ClassInfo& cls, const QVariantMap& object, const QStringList& allowed,
                       KeyedUnarchiver& self, qint64* expanded) {
        switch (cls.kind) {
        case Kind::Array:
            return members(object, QStringLiteral("NS.objects"), allowed, self, expanded);
        case Kind::Set:
            return QVariant::fromValue(
                ArchivedSet{members(object, QStringLiteral("NS.objects"), allowed, self, expanded)});
        case Kind::Dictionary: {
            const QVariantList keys = members(object, QStringLiteral("NS.keys"), allowed, self, expanded);
            const QVariantList values =
                members(object, QStringLiteral("NS.objects"), allowed, self, expanded);
            if (keys.size() != values.size())
                fail(QStringLiteral("a dictionary has %1 keys and %2 values")
                         .arg(keys.size())
                         .arg(values.size()));
            QVariantMap map;
            for (qsizetype i = 0; i < keys.size(); ++i) {
                if (keys[i].metaType().id() != QMetaType::QString)
                    fail(QStringLiteral("a dictionary key is not a string"));
                map.insert(keys[i].toString(), values[i]);
            }
            return map;
        }
        case Kind::String: {
            const QVariant text = object.value(QStringLiteral("NS.string"));
            if (text.metaType().id() != QMetaType::QString)
                fail(QStringLiteral("a string object has no NS.string"));
            return text;
        }
        case Kind::Data: {
            const QVariant bytes = object.value(QStringLiteral("NS.data"));
            if (bytes.metaType().id() != QMetaType::QByteArray)
                fail(QStringLiteral("a data object has no NS.data"));
            return bytes;
        }
        case Kind::Number:
            fail(QStringLiteral("numbers are stored inline, not as objects"));
        case Kind::Date: {
            const QVariant time = object.value(QStringLiteral("NS.time"));
            if (time.metaType().id() != QMetaType::Double && !isInteger(time))
                fail(QStringLiteral("a date has no NS.time"));
            const double seconds = time.toDouble() + referenceDateOffset;
            // QDateTime holds milliseconds in 64 bits; keep well inside that.
            if (!std::isfinite(seconds) || std::fabs(seconds) > 1e14)
                fail(QStringLiteral("a date is out of range"));
            return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(seconds * 1000.0)),
                                                  Qt::UTC);
        }
        case Kind::Null:
            return QVariant::fromValue(nullptr);
        case Kind::Custom: {
            containers.push_back(object);
            containerExpanded.push_back(0);
            std::shared_ptr<marlockCommon::SecureCoding> value = (*cls.decode)(self);
            containers.pop_back();
            lastExpanded = containerExpanded.back();
            containerExpanded.pop_back();
            if (failure)
                fail(*failure);
            if (!value)
                fail(QStringLiteral("an object of class '%1' could not be decoded").arg(cls.name));
            if (value->className() != cls.name)
                fail(QStringLiteral("class '%1' decoded to a '%2'").arg(cls.name, value->className()));
            count(expanded);
            return QVariant::fromValue(value);
        }
        }
        fail(QStringLiteral("unreachable class kind"));
    }

    const QVariantMap& current() const {
        checkOpen();
        return containers.back();
    }
};

KeyedUnarchiver::KeyedUnarchiver(const QByteArray& data)
    : d(std::make_unique<Private>()) {
    if (data.size() > maximumArchiveBytes)
        fail(QStringLiteral("the archive is larger than %1 bytes").arg(maximumArchiveBytes));
    if (!PropertyList::isBinary(data))
        fail(QStringLiteral("the data is not a binary property list"));
    Error error;
    const std::optional<QVariant> parsed = PropertyList::read(data, nullptr, &error);
    if (!parsed)
        fail(QStringLiteral("the data is not a property list: %1").arg(error.description()));
    if (parsed->metaType().id() != QMetaType::QVariantMap)
        fail(QStringLiteral("the archive is not a dictionary"));
    const QVariantMap archive = parsed->toMap();
    if (archive.value(QStringLiteral("$archiver")) != KeyedArchive::archiverName)
        fail(QStringLiteral("the archive was not written by a keyed archiver"));
    const QVariant version = archive.value(QStringLiteral("$version"));
    if (!isInteger(version) || version.toLongLong() != KeyedArchive::version)
        fail(QStringLiteral("unsupported archive version"));
    const QVariant objects = archive.value(QStringLiteral("$objects"));
    const QVariant top = archive.value(QStringLiteral("$top"));
    if (objects.metaType().id() != QMetaType::QVariantList || top.metaType().id() != QMetaType::QVariantMap)
        fail(QStringLiteral("the archive has no $objects array or no $top dictionary"));
    d->objects = objects.toList();
    if (d->objects.isEmpty() || d->objects.front() != QStringLiteral("$null"))
        fail(QStringLiteral("$objects does not begin with $null"));
    if (d->objects.size() > maximumObjects)
        fail(QStringLiteral("the archive has more than %1 objects").arg(maximumObjects));
    d->containers.push_back(top.toMap());
    d->containerExpanded.push_back(0);
}

KeyedUnarchiver::~KeyedUnarchiver() = default;

void KeyedUnarchiver::setRequiresSecureCoding(bool required) {
    d->secure = required;
}

bool KeyedUnarchiver::requiresSecureCoding() const {
    return d->secure;
}

bool KeyedUnarchiver::containsValueForKey(const QString& key) const {
    return d->current().contains(key);
}

QVariant KeyedUnarchiver::decodeValueOfClasses(const QStringList& classes, const QString& key) {
    const QVariantMap& object = d->current();
    const auto found = object.constFind(key);
    if (found == object.constEnd())
        return QVariant();
    const quint64 id = d->uidOf(*found, QStringLiteral("the value for '%1'").arg(key));
    QVariant value = d->resolve(id, classes, *this);
    d->count(&d->containerExpanded.back());
    return value;
}

std::optional<QString> KeyedUnarchiver::decodeStringForKey(const QString& key) {
    const QVariant value = d->current().value(key);
    if (value.metaType().id() == QMetaType::QString)
        return value.toString();
    if (!isUid(value))
        return std::nullopt;
    try {
        const QVariant text = decodeValueOfClasses({QStringLiteral("NSString")}, key);
        if (text.metaType().id() == QMetaType::QString)
            return text.toString();
    } catch (const ArchiveException& exception) {
        failWithError(exception.reason());
    }
    return std::nullopt;
}

std::optional<double> KeyedUnarchiver::decodeDoubleForKey(const QString& key) {
    const QVariant value = d->current().value(key);
    if (value.metaType().id() != QMetaType::Double && !isInteger(value))
        return std::nullopt;
    return value.toDouble();
}

std::optional<bool> KeyedUnarchiver::decodeBoolForKey(const QString& key) {
    const QVariant value = d->current().value(key);
    if (value.metaType().id() != QMetaType::Bool)
        return std::nullopt;
    return value.toBool();
}

std::optional<qint64> KeyedUnarchiver::decodeInt64ForKey(const QString& key) {
    const QVariant value = d->current().value(key);
    if (!isInteger(value))
        return std::nullopt;
    if (value.metaType().id() == QMetaType::ULongLong &&
        value.toULongLong() > static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
        return std::nullopt;
    return value.toLongLong();
}

std::optional<QByteArray> KeyedUnarchiver::decodeDataForKey(const QString& key) {
    const QVariant value = d->current().value(key);
    if (value.metaType().id() == QMetaType::QByteArray)
        return value.toByteArray();
    if (!isUid(value))
        return std::nullopt;
    try {
        const QVariant bytes = decodeValueOfClasses({QStringLiteral("NSData")}, key);
        if (bytes.metaType().id() == QMetaType::QByteArray)
            return bytes.toByteArray();
    } catch (const ArchiveException& exception) {
        failWithError(exception.reason());
    }
    return std::nullopt;
}

std::shared_ptr<marlockCommon::SecureCoding>
KeyedUnarchiver::decodeObjectOfClasses(const QStringList& classNames, const QString& key) {
    try {
        const QVariant value = decodeValueOfClasses(classNames, key);
        if (!value.isValid())
            return nullptr;
        if (value.metaType() != QMetaType::fromType<std::shared_ptr<marlockCommon::SecureCoding>>()) {
            failWithError(QStringLiteral("the value for '%1' is not an object of %2")
                              .arg(key, classNames.join(QStringLiteral(", "))));
            return nullptr;
        }
        return value.value<std::shared_ptr<marlockCommon::SecureCoding>>();
    } catch (const ArchiveException& exception) {
        failWithError(exception.reason());
        return nullptr;
    }
}

void KeyedUnarchiver::failWithError(const QString& description) {
    if (!d->failure)
        d->failure = description;
}

std::optional<QString> KeyedUnarchiver::error() const {
    return d->failure;
}

void KeyedUnarchiver::finishDecoding() {
    d->finished = true;
}

QVariant KeyedUnarchiver::unarchivedObjectOfClasses(const QStringList& classes, const QByteArray& data) {
    KeyedUnarchiver unarchiver(data);
    QVariant root = unarchiver.decodeValueOfClasses(classes, KeyedArchive::rootObjectKey);
    unarchiver.finishDecoding();
    return root;
}

} // namespace platform
