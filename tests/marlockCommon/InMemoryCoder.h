#pragma once

#include "marlockCommon/KeyedCoding.h"

#include <QMap>

#include <memory>
#include <variant>

// A keyed coder that keeps each object's entry as a map of typed values, with nested objects as
// nested entries. Enough to exercise objects against the KeyedCoding contract without an archive
// format.
namespace testsupport {

struct CodedEntry;
using CodedValue = std::variant<QString, double, bool, qint64, QByteArray, std::shared_ptr<CodedEntry>>;

struct CodedEntry {
    QString className;
    QMap<QString, CodedValue> values;
};

class InMemoryEncoder final : public marlockCommon::KeyedEncoder {
public:
    explicit InMemoryEncoder(CodedEntry& entry)
        : entry_(entry) {}

    // The entry of `object`, as an archiver would write it as its root.
    static std::shared_ptr<CodedEntry> archive(const marlockCommon::SecureCoding& object) {
        auto entry = std::make_shared<CodedEntry>();
        entry->className = object.className();
        InMemoryEncoder encoder(*entry);
        object.encode(encoder);
        return entry;
    }

    void encodeString(const QString& value, const QString& key) override { entry_.values[key] = value; }
    void encodeDouble(double value, const QString& key) override { entry_.values[key] = value; }
    void encodeBool(bool value, const QString& key) override { entry_.values[key] = value; }
    void encodeInt64(qint64 value, const QString& key) override { entry_.values[key] = value; }
    void encodeData(const QByteArray& value, const QString& key) override { entry_.values[key] = value; }
    void encodeObject(const marlockCommon::SecureCoding& object, const QString& key) override {
        entry_.values[key] = archive(object);
    }

private:
    CodedEntry& entry_;
};

class InMemoryDecoder final : public marlockCommon::KeyedDecoder {
public:
    // `entry` must outlive the decoder.
    explicit InMemoryDecoder(const CodedEntry& entry)
        : entry_(entry) {}

    bool requiresSecureCoding() const override { return true; }
    bool containsValueForKey(const QString& key) const override { return entry_.values.contains(key); }

    std::optional<QString> decodeStringForKey(const QString& key) override { return get<QString>(key); }
    std::optional<double> decodeDoubleForKey(const QString& key) override { return get<double>(key); }
    std::optional<bool> decodeBoolForKey(const QString& key) override { return get<bool>(key); }
    std::optional<qint64> decodeInt64ForKey(const QString& key) override { return get<qint64>(key); }
    std::optional<QByteArray> decodeDataForKey(const QString& key) override { return get<QByteArray>(key); }

    std::shared_ptr<marlockCommon::SecureCoding> decodeObjectOfClasses(const QStringList& classNames,
                                                                       const QString& key) override {
        const auto nested = get<std::shared_ptr<CodedEntry>>(key);
        const auto decode = nested ? marlockCommon::secureCodingClass((*nested)->className) : std::nullopt;
        if (!nested || !classNames.contains((*nested)->className) || !decode) {
            failWithError(!nested ? QStringLiteral("no object under ") + key
                                  : QStringLiteral("class not allowed or unknown: ") + (*nested)->className);
            return nullptr;
        }
        InMemoryDecoder child(**nested);
        auto object = (*decode)(child);
        if (child.error())
            failWithError(*child.error());
        return object;
    }

    void failWithError(const QString& description) override {
        if (!error_)
            error_ = description;
    }
    std::optional<QString> error() const override { return error_; }

private:
    template <typename T> std::optional<T> get(const QString& key) const {
        const auto found = entry_.values.constFind(key);
        if (found == entry_.values.cend() || !std::holds_alternative<T>(*found))
            return std::nullopt;
        return std::get<T>(*found);
    }

    const CodedEntry& entry_;
    std::optional<QString> error_;
};

} // namespace testsupport
