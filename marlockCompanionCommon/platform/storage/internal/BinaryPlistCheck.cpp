#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistCheck.h"

#include <unordered_map>

namespace platform::PropertyList::internal {
namespace {

constexpr qsizetype headerSize = 8;
constexpr qsizetype trailerSize = 32;
// The parser builds one node per use of an object; a few million nodes already cost hundreds of
// megabytes, far beyond any settings file or archive.
constexpr quint64 maximumExpandedNodes = 1u << 20;

struct Failure {
    QString reason;
};

class Checker {
public:
    Checker(const QByteArray& bytes, int maximumDepth)
        : bytes_(bytes)
        , maximumDepth_(maximumDepth) {}

    void run() {
        if (bytes_.size() < headerSize + trailerSize)
            throw Failure{QStringLiteral("too short for a binary property list")};
        const qsizetype trailer = bytes_.size() - trailerSize;
        offsetSize_ = byteAt(trailer + 6);
        refSize_ = byteAt(trailer + 7);
        const quint64 objectCount = readUnsigned(trailer + 8, 8);
        const quint64 top = readUnsigned(trailer + 16, 8);
        const quint64 tableOffset = readUnsigned(trailer + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8)
            throw Failure{QStringLiteral("bad integer sizes in the trailer")};
        if (objectCount == 0 || top >= objectCount)
            throw Failure{QStringLiteral("bad object count or top object")};
        const quint64 available = static_cast<quint64>(trailer);
        if (tableOffset < headerSize || tableOffset > available ||
            objectCount > (available - tableOffset) / offsetSize_)
            throw Failure{QStringLiteral("the offset table lies outside the data")};
        tableOffset_ = static_cast<qsizetype>(tableOffset);
        objectCount_ = objectCount;
        tableStart_ = tableOffset_;
        visit(top, 0);
    }

private:
    enum class Mark : quint8 { Unvisited, InProgress, Done };
    struct State {
        Mark mark = Mark::Unvisited;
        quint64 expanded = 0;
    };

    int byteAt(qsizetype at) const { return static_cast<quint8>(bytes_[at]); }

    quint64 readUnsigned(qsizetype at, int size) const {
        quint64 value = 0;
        for (int i = 0; i < size; ++i)
            value = (value << 8) | static_cast<quint8>(bytes_[at + i]);
        return value;
    }

    qsizetype offsetOf(quint64 object) const {
        const quint64 offset =
            readUnsigned(tableOffset_ + static_cast<qsizetype>(object) * offsetSize_, offsetSize_);
        if (offset < headerSize || offset >= static_cast<quint64>(tableStart_))
            throw Failure{QStringLiteral("an object lies outside the object area")};
        return static_cast<qsizetype>(offset);
    }

    void need(qsizetype at, quint64 count) const {
        if (static_cast<quint64>(tableStart_ - at) < count)
            throw Failure{QStringLiteral("an object runs past the object area")};
    }

    // The element count of a container: in the marker's low nibble, or (0xF) in an integer after it.
    quint64 countAt(qsizetype& at) const {
        const int marker = byteAt(at);
        ++at;
        if ((marker & 0x0F) != 0x0F)
            return static_cast<quint64>(marker & 0x0F);
        need(at, 1);
        const int intMarker = byteAt(at);
        if ((intMarker & 0xF0) != 0x10 || (intMarker & 0x0F) > 3)
            throw Failure{QStringLiteral("a container has a malformed length")};
        const int size = 1 << (intMarker & 0x0F);
        ++at;
        need(at, static_cast<quint64>(size));
        const quint64 count = readUnsigned(at, size);
        at += size;
        return count;
    }

    quint64 refAt(qsizetype at) const {
        const quint64 ref = readUnsigned(at, refSize_);
        if (ref >= objectCount_)
            throw Failure{QStringLiteral("a reference names no object")};
        return ref;
    }

    // Keys must be strings without NUL: the parser hands keys out as C strings and stops the
    // process when one holds a NUL.
    void checkKey(quint64 object) const {
        qsizetype at = offsetOf(object);
        const int type = byteAt(at) & 0xF0;
        if (type != 0x50 && type != 0x60)
            throw Failure{QStringLiteral("a dictionary key is not a string")};
        const int unit = type == 0x60 ? 2 : 1;
        const quint64 length = countAt(at);
        if (length > static_cast<quint64>(tableStart_) / unit)
            throw Failure{QStringLiteral("a dictionary key runs past the object area")};
        need(at, length * unit);
        for (quint64 i = 0; i < length; ++i) {
            const qsizetype codeUnit = at + static_cast<qsizetype>(i) * unit;
            if (byteAt(codeUnit) == 0 && (unit == 1 || byteAt(codeUnit + 1) == 0))
                throw Failure{QStringLiteral("a dictionary key holds a NUL character")};
        }
    }

    quint64 visit(quint64 object, int depth) {
        if (depth > maximumDepth_)
            throw Failure{QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth_)};
        State& state = state_[object]; // unordered_map references survive later insertions
        if (state.mark == Mark::Done)
            return state.expanded;
        if (state.mark == Mark::InProgress)
            throw Failure{QStringLiteral("a container contains itself")};
        state.mark = Mark::InProgress;

        qsizetype at = offsetOf(object);
        const int type = byteAt(at) & 0xF0;
        quint64 expanded = 1;
        if (type == 0xA0 || type == 0xB0 || type == 0xC0 || type == 0xD0) {
            const bool dictionary = type == 0xD0;
            const quint64 count = countAt(at);
            const quint64 refs = dictionary ? count * 2 : count;
            if (count > static_cast<quint64>(tableStart_) ||
                refs > static_cast<quint64>(tableStart_) / refSize_)
                throw Failure{QStringLiteral("a container is larger than the data")};
            need(at, refs * refSize_);
            for (quint64 i = 0; i < refs; ++i) {
                const quint64 child = refAt(at + static_cast<qsizetype>(i) * refSize_);
                if (dictionary && i < count)
                    checkKey(child);
                expanded += visit(child, depth + 1);
                if (expanded > maximumExpandedNodes)
                    throw Failure{QStringLiteral("the object graph expands beyond %1 objects")
                                      .arg(maximumExpandedNodes)};
            }
        }
        state_[object] = State{Mark::Done, expanded};
        return expanded;
    }

    const QByteArray& bytes_;
    const int maximumDepth_;
    int offsetSize_ = 0;
    int refSize_ = 0;
    qsizetype tableOffset_ = 0;
    qsizetype tableStart_ = 0;
    quint64 objectCount_ = 0;
    // Only reached objects get an entry: the object count alone may be in the millions.
    std::unordered_map<quint64, State> state_;
};

} // namespace

QString checkBinaryPlist(const QByteArray& bytes, int maximumDepth) {
    try {
        Checker(bytes, maximumDepth).run();
        return {};
    } catch (const Failure& failure) {
        return failure.reason;
    }
}

} // namespace platform::PropertyList::internal
