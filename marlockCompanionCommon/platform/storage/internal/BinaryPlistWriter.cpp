#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistWriter.h"

#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistFormat.h"
#include "marlockCompanionCommon/platform/storage/internal/PlistValueKind.h"

#include <QDateTime>

#include <algorithm>
#include <bit>
#include <limits>
#include <vector>

namespace platform::PropertyList::internal {
namespace {

struct Failure {
    QString reason;
};

// The fewest of 1, 2, 4 or 8 bytes that hold `value` unsigned.
int widthOf(quint64 value) {
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    if (value <= 0xFFFFFFFF)
        return 4;
    return 8;
}

// log2 of a width of 1, 2, 4 or 8: the low nibble of an integer's marker.
quint8 widthExponent(int width) {
    return static_cast<quint8>(std::countr_zero(static_cast<unsigned>(width)));
}

class Writer {
public:
    explicit Writer(int maximumDepth)
        : maximumDepth_(maximumDepth) {}

    QByteArray write(const QVariant& value) {
        flatten(value, 0);
        const quint64 count = objects_.size();
        refWidth_ = widthOf(count - 1);
        out_.append(bplist::magic, bplist::headerSize);
        std::vector<quint64> offsets;
        offsets.reserve(objects_.size());
        for (const Object& object : objects_) {
            offsets.push_back(static_cast<quint64>(out_.size()));
            writeObject(object);
        }
        const auto tableOffset = static_cast<quint64>(out_.size());
        const int offsetWidth = widthOf(tableOffset);
        for (quint64 offset : offsets)
            appendUnsigned(offset, offsetWidth);
        out_.append(6, '\0'); // five unused bytes and the sort version
        out_.append(char(offsetWidth));
        out_.append(char(refWidth_));
        appendUnsigned(count, 8);
        appendUnsigned(0, 8); // the top object is the first one
        appendUnsigned(tableOffset, 8);
        return out_;
    }

private:
    struct Object {
        QVariant value;
        Kind kind;
        std::vector<quint64> refs; // an array's elements; a dictionary's keys, then its values
    };

    // Gives every value (and dictionary key) an object, in depth-first order, so that a
    // container's references are known before it is written.
    quint64 flatten(const QVariant& value, int depth) {
        if (depth > maximumDepth_)
            throw Failure{QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth_)};
        const Kind kind = kindOf(value);
        if (kind == Kind::None)
            throw Failure{
                QStringLiteral("a value of type %1 is not a property-list value")
                    .arg(QLatin1String(value.metaType().name() ? value.metaType().name() : "invalid"))};
        const quint64 index = objects_.size();
        objects_.push_back(Object{value, kind, {}});
        std::vector<quint64> refs;
        if (kind == Kind::Array) {
            const QVariantList items = value.toList();
            for (const QVariant& item : items)
                refs.push_back(flatten(item, depth + 1));
        } else if (kind == Kind::Dictionary) {
            const QVariantMap entries = dictionaryOf(value);
            for (auto it = entries.begin(); it != entries.end(); ++it)
                refs.push_back(flatten(it.key(), depth + 1));
            for (auto it = entries.begin(); it != entries.end(); ++it)
                refs.push_back(flatten(it.value(), depth + 1));
        }
        objects_[index].refs = std::move(refs);
        return index;
    }

    void appendUnsigned(quint64 value, int width) {
        for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
            out_.append(char((value >> shift) & 0xFF));
    }

    void appendDouble(double value) { appendUnsigned(std::bit_cast<quint64>(value), 8); }

    void appendInteger(quint64 value) {
        const int width = widthOf(value);
        out_.append(char(bplist::integerType | widthExponent(width)));
        appendUnsigned(value, width);
    }

    // A marker with its count in the low nibble, or 0xF and the count as an integer after it.
    void appendMarker(quint8 type, quint64 count) {
        if (count < 0xF) {
            out_.append(char(type | count));
            return;
        }
        out_.append(char(type | 0xF));
        appendInteger(count);
    }

    void writeString(const QString& text) {
        const bool ascii = std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
        appendMarker(ascii ? bplist::asciiStringType : bplist::utf16StringType,
                     static_cast<quint64>(text.size()));
        if (ascii) {
            out_.append(text.toLatin1());
            return;
        }
        // Code unit by code unit: unpaired surrogates, NUL and U+FEFF go through untouched.
        for (QChar c : text)
            appendUnsigned(c.unicode(), 2);
    }

    void writeDate(const QDateTime& date) {
        if (!date.isValid())
            throw Failure{QStringLiteral("an invalid date")};
        const qint64 msecs = date.toMSecsSinceEpoch();
        if (msecs < bplist::earliestDateMSecs || msecs > bplist::latestDateMSecs)
            throw Failure{
                QStringLiteral("the date %1 is outside years 1 to 9999").arg(date.toString(Qt::ISODate))};
        out_.append(char(bplist::dateMarker));
        appendDouble(static_cast<double>(msecs - bplist::referenceDateMSecs) / 1000.0);
    }

    void writeObject(const Object& object) {
        const QVariant& value = object.value;
        switch (object.kind) {
        case Kind::String:
            return writeString(value.toString());
        case Kind::Data: {
            const QByteArray bytes = value.toByteArray();
            appendMarker(bplist::dataType, static_cast<quint64>(bytes.size()));
            out_.append(bytes);
            return;
        }
        case Kind::Boolean:
            out_.append(char(value.toBool() ? bplist::trueMarker : bplist::falseMarker));
            return;
        case Kind::Integer: {
            const qint64 signedValue = value.toLongLong();
            if (signedValue >= 0)
                return appendInteger(static_cast<quint64>(signedValue));
            // Readers take only 8-byte integers as signed.
            out_.append(char(bplist::integerType | 3));
            return appendUnsigned(static_cast<quint64>(signedValue), 8);
        }
        case Kind::UnsignedInteger: {
            const quint64 unsignedValue = value.toULongLong();
            if (unsignedValue <= static_cast<quint64>(std::numeric_limits<qint64>::max()))
                return appendInteger(unsignedValue);
            // 8 bytes would read back negative: 16 bytes, the upper half zero.
            out_.append(char(bplist::integerType | 4));
            appendUnsigned(0, 8);
            return appendUnsigned(unsignedValue, 8);
        }
        case Kind::Real:
            out_.append(char(bplist::realType | 3));
            return appendDouble(value.toDouble());
        case Kind::Date:
            return writeDate(value.toDateTime());
        case Kind::Uid: {
            const quint64 uid = value.value<Uid>().value;
            const int width = widthOf(uid);
            out_.append(char(bplist::uidType | (width - 1)));
            return appendUnsigned(uid, width);
        }
        case Kind::Array:
        case Kind::Dictionary: {
            const bool dictionary = object.kind == Kind::Dictionary;
            const quint64 count = dictionary ? object.refs.size() / 2 : object.refs.size();
            appendMarker(dictionary ? bplist::dictionaryType : bplist::arrayType, count);
            for (quint64 ref : object.refs)
                appendUnsigned(ref, refWidth_);
            return;
        }
        case Kind::None:
            break;
        }
        Q_UNREACHABLE();
    }

    const int maximumDepth_;
    std::vector<Object> objects_;
    int refWidth_ = 1;
    QByteArray out_;
};

} // namespace

std::optional<QByteArray> writeBinaryPlist(const QVariant& value, int maximumDepth, QString* problem) {
    try {
        return Writer(maximumDepth).write(value);
    } catch (const Failure& failure) {
        if (problem)
            *problem = failure.reason;
        return std::nullopt;
    }
}

} // namespace platform::PropertyList::internal
