#pragma once

#include "marlockCommon/KeyedCoding.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <QVariant>

#include <memory>
#include <tuple>

namespace archivetest {

inline QVariant uid(quint64 value) {
    return QVariant::fromValue(platform::PropertyList::Uid{value});
}

// A keyed archive written by hand, for archives no archiver would write.
inline QByteArray handMade(const QVariantList& objects, const QVariantMap& top = {{"root", uid(1)}},
                           const QString& archiver = QStringLiteral("NSKeyedArchiver"),
                           qint64 version = 100000) {
    const QVariantMap archive{
        {"$archiver", archiver}, {"$version", version}, {"$top", top}, {"$objects", objects}};
    return platform::PropertyList::write(archive, platform::PropertyList::Format::Binary).value();
}

inline QVariantMap classDescription(const QString& name, const QStringList& chain) {
    return {{"$classname", name}, {"$classes", chain}};
}

// A small class that codes itself, with a link to another of its kind.
class Waypoint final : public marlockCommon::SecureCoding {
public:
    static inline const QString name = QStringLiteral("TestWaypoint");
    QString label;
    double latitude = 0;
    qint64 order = 0;
    bool visited = false;
    QByteArray note;
    std::shared_ptr<Waypoint> next;

    QString className() const override { return name; }
    void encode(marlockCommon::KeyedEncoder& coder) const override {
        coder.encodeString(label, "label");
        coder.encodeDouble(latitude, "latitude");
        coder.encodeInt64(order, "order");
        coder.encodeBool(visited, "visited");
        coder.encodeData(note, "note");
        if (next)
            coder.encodeObject(*next, "next");
    }
    static std::shared_ptr<marlockCommon::SecureCoding> decode(marlockCommon::KeyedDecoder& coder) {
        const auto label = coder.decodeStringForKey("label");
        const auto latitude = coder.decodeDoubleForKey("latitude");
        const auto order = coder.decodeInt64ForKey("order");
        const auto visited = coder.decodeBoolForKey("visited");
        const auto note = coder.decodeDataForKey("note");
        if (!label || !latitude || !order || !visited || !note) {
            coder.failWithError(QStringLiteral("a waypoint field is missing or of the wrong type"));
            return nullptr;
        }
        auto point = std::make_shared<Waypoint>();
        std::tie(point->label, point->latitude, point->order, point->visited, point->note) =
            std::tie(*label, *latitude, *order, *visited, *note);
        if (coder.containsValueForKey("next")) {
            point->next = std::static_pointer_cast<Waypoint>(coder.decodeObjectOfClasses({name}, "next"));
            if (!point->next)
                return nullptr;
        }
        return point;
    }
    static void registerClass() { marlockCommon::registerSecureCodingClass(name, &Waypoint::decode); }
    friend bool operator==(const Waypoint& a, const Waypoint& b) {
        return std::tie(a.label, a.latitude, a.order, a.visited, a.note) ==
                   std::tie(b.label, b.latitude, b.order, b.visited, b.note) &&
               (a.next && b.next ? *a.next == *b.next : a.next == b.next);
    }
};

inline QVariant object(std::shared_ptr<marlockCommon::SecureCoding> value) {
    return QVariant::fromValue(std::move(value));
}
// The decoded object of class T a variant holds, or null.
template <typename T> std::shared_ptr<T> decoded(const QVariant& value) {
    return std::dynamic_pointer_cast<T>(value.value<std::shared_ptr<marlockCommon::SecureCoding>>());
}

} // namespace archivetest
