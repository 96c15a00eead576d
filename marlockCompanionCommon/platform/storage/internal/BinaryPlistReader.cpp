#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistReader.h"

#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistFormat.h"

#include <QDateTime>
#include <QTimeZone>

#include <bit>
#include <cmath>
#include <limits>
#include <unordered_map>

namespace platform::PropertyList::internal {
namespace {

// A tree with millions of nodes (shared objects counted once per use) is far beyond any
// settings file or archive, and consumers walk it node by node.
constexpr quint64 maximumExpandedNodes = 1u << 20;

struct Failure {
    QString reason;
};

class Reader {
public:
    Reader(const QByteArray& bytes, int maximumDepth)
        : bytes_(bytes)
        , maximumDepth_(maximumDepth) {}

    QVariant run() {
        if (bytes_.size() < bplist::headerSize + bplist::trailerSize)
            throw Failure{QStringLiteral("too short for a binary property list")};
        const qsizetype trailer = bytes_.size() - bplist::trailerSize;
        offsetWidth_ = byteAt(trailer + 6);
        refWidth_ = byteAt(trailer + 7);
        const quint64 objectCount = readUnsigned(trailer + 8, 8);
        const quint64 top = readUnsigned(trailer + 16, 8);
        const quint64 tableOffset = readUnsigned(trailer + 24, 8);
        if (offsetWidth_ < 1 || offsetWidth_ > 8 || refWidth_ < 1 || refWidth_ > 8)
            throw Failure{QStringLiteral("bad integer sizes in the trailer")};
        if (objectCount == 0 || top >= objectCount)
            throw Failure{QStringLiteral("bad object count or top object")};
        const auto available = static_cast<quint64>(trailer);
        if (tableOffset < bplist::headerSize || tableOffset > available ||
            objectCount > (available - tableOffset) / offsetWidth_)
            throw Failure{QStringLiteral("the offset table lies outside the data")};
        tableStart_ = static_cast<qsizetype>(tableOffset);
        objectCount_ = objectCount;
        return object(top, 0);
    }

private:
    enum class Mark : quint8 { InProgress, Done };
    struct State {
        Mark mark = Mark::InProgress;
        quint64 expanded = 0;
        QVariant value; // kept: a shared object is read once and then shared (QVariant is)
    };

    int byteAt(qsizetype at) const { return static_cast<quint8>(bytes_[at]); }

    quint64 readUnsigned(qsizetype at, int width) const {
        quint64 value = 0;
        for (int i = 0; i < width; ++i)
            value = (value << 8) | static_cast<quint8>(bytes_[at + i]);
        return value;
    }

    qsizetype offsetOf(quint64 object) const {
        const quint64 offset =
            readUnsigned(tableStart_ + static_cast<qsizetype>(object) * offsetWidth_, offsetWidth_);
        if (offset < bplist::headerSize || offset >= static_cast<quint64>(tableStart_))
            throw Failure{QStringLiteral("an object lies outside the object area")};
        return static_cast<qsizetype>(offset);
    }

    // Makes sure `count` items of `unit` bytes starting at `at` lie in the object area.
    void need(qsizetype at, quint64 count, quint64 unit = 1) const {
        if (count > static_cast<quint64>(tableStart_ - at) / unit)
            throw Failure{QStringLiteral("an object runs past the object area")};
    }

    // An object's count: in the marker's low nibble, or (0xF) in an integer object after it.
    quint64 countAt(qsizetype& at) const {
        const int marker = byteAt(at);
        ++at;
        if ((marker & 0x0F) != 0x0F)
            return static_cast<quint64>(marker & 0x0F);
        need(at, 1);
        const int intMarker = byteAt(at);
        if ((intMarker & 0xF0) != bplist::integerType || (intMarker & 0x0F) > 3)
            throw Failure{QStringLiteral("an object has a malformed length")};
        const int width = 1 << (intMarker & 0x0F);
        ++at;
        need(at, static_cast<quint64>(width));
        const quint64 count = readUnsigned(at, width);
        at += width;
        return count;
    }

    quint64 refAt(qsizetype at) const {
        const quint64 ref = readUnsigned(at, refWidth_);
        if (ref >= objectCount_)
            throw Failure{QStringLiteral("a reference names no object")};
        return ref;
    }

    QVariant integerAt(qsizetype at, int exponent) const {
        if (exponent > 4)
            throw Failure{QStringLiteral("an integer wider than 16 bytes")};
        const int width = 1 << exponent;
        need(at, static_cast<quint64>(width));
        if (width < 8) // 1, 2 and 4 bytes are unsigned
            return QVariant(static_cast<qint64>(readUnsigned(at, width)));
        if (width == 8)
            return QVariant(static_cast<qint64>(readUnsigned(at, 8)));
        // 16 bytes, signed: used for unsigned values above 2^63 - 1, whose upper half is zero.
        const quint64 high = readUnsigned(at, 8);
        const quint64 low = readUnsigned(at + 8, 8);
        if (high == 0)
            return low <= static_cast<quint64>(std::numeric_limits<qint64>::max())
                       ? QVariant(static_cast<qint64>(low))
                       : QVariant(low);
        if (high == std::numeric_limits<quint64>::max() && (low >> 63))
            return QVariant(static_cast<qint64>(low));
        throw Failure{QStringLiteral("an integer beyond 64 bits")};
    }

    QVariant realAt(qsizetype at, int exponent) const {
        if (exponent == 2) {
            need(at, 4);
            return QVariant(
                static_cast<double>(std::bit_cast<float>(static_cast<quint32>(readUnsigned(at, 4)))));
        }
        if (exponent != 3)
            throw Failure{QStringLiteral("a real of unknown width")};
        need(at, 8);
        return QVariant(std::bit_cast<double>(readUnsigned(at, 8)));
    }

    QVariant dateAt(qsizetype at) const {
        need(at, 8);
        const double seconds = std::bit_cast<double>(readUnsigned(at, 8));
        // Checked as a double first: converting an infinite or huge value to an integer is undefined.
        const double msecs = std::round(seconds * 1000.0) + static_cast<double>(bplist::referenceDateMSecs);
        if (!(msecs >= static_cast<double>(bplist::earliestDateMSecs) &&
              msecs <= static_cast<double>(bplist::latestDateMSecs)))
            throw Failure{QStringLiteral("a date is outside years 1 to 9999")};
        return QVariant(QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(msecs), QTimeZone::utc()));
    }

    QString stringAt(qsizetype at, bool utf16) const {
        const quint64 length = countAt(at);
        need(at, length, utf16 ? 2 : 1);
        QString text(static_cast<qsizetype>(length), Qt::Uninitialized);
        for (qsizetype i = 0; i < text.size(); ++i) {
            const int unit = utf16 ? int(readUnsigned(at + 2 * i, 2)) : byteAt(at + i);
            if (!utf16 && unit >= 0x80)
                throw Failure{QStringLiteral("an ASCII string holds a byte above 0x7F")};
            // As stored, one code unit at a time: nothing is dropped, nothing is cut short.
            text[i] = QChar(static_cast<char16_t>(unit));
        }
        return text;
    }

    QString keyAt(quint64 object) const {
        const qsizetype at = offsetOf(object);
        const int type = byteAt(at) & 0xF0;
        if (type != bplist::asciiStringType && type != bplist::utf16StringType)
            throw Failure{QStringLiteral("a dictionary key is not a string")};
        return stringAt(at, type == bplist::utf16StringType);
    }

    // The object and the number of nodes it expands to, shared objects counted at every use.
    std::pair<QVariant, quint64> visit(quint64 index, int depth) {
        if (depth > maximumDepth_)
            throw Failure{QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth_)};
        if (auto found = states_.find(index); found != states_.end()) {
            if (found->second.mark == Mark::InProgress)
                throw Failure{QStringLiteral("a container contains itself")};
            return {found->second.value, found->second.expanded};
        }
        states_.emplace(index, State{});
        quint64 expanded = 1;
        QVariant value = read(offsetOf(index), depth, expanded);
        State& state = states_[index]; // read() has inserted more entries since
        state = State{Mark::Done, expanded, value};
        return {std::move(value), expanded};
    }

    QVariant object(quint64 index, int depth) { return visit(index, depth).first; }

    QVariant read(qsizetype at, int depth, quint64& expanded) {
        const int marker = byteAt(at);
        const int type = marker & 0xF0;
        switch (type) {
        case 0x00:
            if (marker == bplist::falseMarker || marker == bplist::trueMarker)
                return QVariant(marker == bplist::trueMarker);
            break;
        case bplist::integerType:
            return integerAt(at + 1, marker & 0x0F);
        case bplist::realType:
            return realAt(at + 1, marker & 0x0F);
        case 0x30:
            if (marker == bplist::dateMarker)
                return dateAt(at + 1);
            break;
        case bplist::dataType: {
            const quint64 length = countAt(at);
            need(at, length);
            return QVariant(bytes_.mid(at, static_cast<qsizetype>(length)));
        }
        case bplist::asciiStringType:
        case bplist::utf16StringType:
            return QVariant(stringAt(at, type == bplist::utf16StringType));
        case bplist::uidType:
            need(at + 1, static_cast<quint64>((marker & 0x0F) + 1));
            if ((marker & 0x0F) > 7)
                throw Failure{QStringLiteral("a UID wider than 8 bytes")};
            return QVariant::fromValue(Uid{readUnsigned(at + 1, (marker & 0x0F) + 1)});
        case bplist::arrayType:
        case bplist::setType:
        case bplist::dictionaryType:
            return container(at, type == bplist::dictionaryType, depth, expanded);
        default:
            break;
        }
        throw Failure{QStringLiteral("an object of unknown type 0x%1").arg(marker, 2, 16, QLatin1Char('0'))};
    }

    QVariant container(qsizetype at, bool dictionary, int depth, quint64& expanded) {
        const quint64 count = countAt(at);
        if (count > static_cast<quint64>(tableStart_))
            throw Failure{QStringLiteral("a container is larger than the data")};
        need(at, dictionary ? count * 2 : count, static_cast<quint64>(refWidth_));
        auto child = [&](quint64 i) -> QVariant {
            auto [value, size] = visit(refAt(at + static_cast<qsizetype>(i) * refWidth_), depth + 1);
            expanded += size;
            if (expanded > maximumExpandedNodes)
                throw Failure{
                    QStringLiteral("the object graph expands beyond %1 objects").arg(maximumExpandedNodes)};
            return value;
        };
        if (!dictionary) {
            QVariantList items;
            items.reserve(static_cast<qsizetype>(count));
            for (quint64 i = 0; i < count; ++i)
                items.append(child(i));
            return items;
        }
        QVariantMap entries;
        for (quint64 i = 0; i < count; ++i) {
            const QString key = keyAt(refAt(at + static_cast<qsizetype>(i) * refWidth_));
            entries.insert(key, child(count + i));
        }
        return entries;
    }

    const QByteArray& bytes_;
    const int maximumDepth_;
    int offsetWidth_ = 0;
    int refWidth_ = 0;
    qsizetype tableStart_ = 0;
    quint64 objectCount_ = 0;
    // Only reached objects get an entry: the object count alone may be in the millions.
    std::unordered_map<quint64, State> states_;
};

} // namespace

std::optional<QVariant> readBinaryPlist(const QByteArray& bytes, int maximumDepth, QString* problem) {
    try {
        return Reader(bytes, maximumDepth).run();
    } catch (const Failure& failure) {
        if (problem)
            *problem = failure.reason;
        return std::nullopt;
    }
}

} // namespace platform::PropertyList::internal
