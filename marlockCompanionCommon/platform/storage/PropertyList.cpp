#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistReader.h"
#include "marlockCompanionCommon/platform/storage/internal/BinaryPlistWriter.h"
#include "marlockCompanionCommon/platform/storage/internal/PlistValueKind.h"
#include "marlockCompanionCommon/platform/storage/internal/XmlPlistCheck.h"

#include <QDateTime>
#include <QStringDecoder>
#include <QStringList>
#include <QTimeZone>

#include <plist/plist.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

// Binary property lists are read and written by our own code (internal/BinaryPlist*): libplist
// 2.2 cannot write a string holding NUL, cuts such a string short when reading it, and keeps
// dates to 32-bit seconds. XML goes through libplist.
namespace platform::PropertyList {
namespace {

using internal::Kind;

// Nesting deeper than this is no settings file or archive we write; refusing it keeps the
// recursive conversions far from the stack's end.
constexpr int maximumDepth = 256;
// Plists are settings and archives of a few hundred kilobytes; anything near the parser's 32-bit
// length limit is refused before it reaches the parser.
constexpr qsizetype maximumInputSize = 64 * 1024 * 1024;
// Plist dates count seconds from 2001-01-01T00:00:00Z.
constexpr qint64 referenceDateMSecs = 978307200000;

struct PlistDeleter {
    void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, PlistDeleter>;

Error makeError(qint64 code, const QString& reason) {
    return Error(errorDomain, code, {{Error::localizedDescriptionKey, reason}});
}

struct WriteFailure {
    QString reason;
};

// Builds libplist's tree for XML output.
class XmlWriter {
public:
    Node convert(const QVariant& value, int depth) {
        if (depth > maximumDepth)
            throw WriteFailure{QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth)};
        switch (internal::kindOf(value)) {
        case Kind::String:
            return Node(plist_new_string(utf8(value.toString()).constData()));
        case Kind::Data: {
            const QByteArray bytes = value.toByteArray();
            return Node(plist_new_data(bytes.constData(), static_cast<uint64_t>(bytes.size())));
        }
        case Kind::Boolean:
            return Node(plist_new_bool(value.toBool() ? 1 : 0));
        case Kind::Integer:
            return integer(value.toLongLong());
        case Kind::UnsignedInteger: {
            const qulonglong unsignedValue = value.toULongLong();
            if (unsignedValue > static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
                throw WriteFailure{QStringLiteral("unsigned integer %1 does not fit in 64 signed bits in XML")
                                       .arg(unsignedValue)};
            return integer(static_cast<qint64>(unsignedValue));
        }
        case Kind::Real:
            return Node(plist_new_real(value.toDouble()));
        case Kind::Date:
            return date(value.toDateTime());
        case Kind::Array:
            return array(value.toList(), depth);
        case Kind::Dictionary:
            return dictionary(internal::dictionaryOf(value), depth);
        case Kind::Uid:
            throw WriteFailure{QStringLiteral("a UID can only be written in a binary property list")};
        case Kind::None:
            break;
        }
        throw WriteFailure{
            QStringLiteral("a value of type %1 is not a property-list value")
                .arg(QString::fromLatin1(value.metaType().name() ? value.metaType().name() : "invalid"))};
    }

private:
    static QByteArray utf8(const QString& text) {
        // XML has no way to write NUL, and libplist's strings are C strings.
        if (text.contains(QChar(0)))
            throw WriteFailure{QStringLiteral("a string holds a NUL character, which XML cannot")};
        return text.toUtf8();
    }

    // The library keeps every integer as 64 unsigned bits and writes them back as two's complement,
    // which is how readers take a signed 64-bit integer.
    static Node integer(qint64 value) { return Node(plist_new_uint(static_cast<uint64_t>(value))); }

    static Node date(const QDateTime& dateTime) {
        if (!dateTime.isValid())
            throw WriteFailure{QStringLiteral("an invalid date")};
        const qint64 msecs = dateTime.toMSecsSinceEpoch() - referenceDateMSecs;
        // The library's date setter takes 32-bit seconds plus a non-negative microsecond part.
        const qint64 seconds = msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000);
        const qint64 micros = (msecs - seconds * 1000) * 1000;
        if (seconds < std::numeric_limits<qint32>::min() + 1 || seconds > std::numeric_limits<qint32>::max())
            throw WriteFailure{
                QStringLiteral("the date %1 is out of range for XML").arg(dateTime.toString(Qt::ISODate))};
        Node node(plist_new_date(0, 0));
        plist_set_date_val(node.get(), static_cast<int32_t>(seconds), static_cast<int32_t>(micros));
        return node;
    }

    Node array(const QVariantList& items, int depth) {
        Node node(plist_new_array());
        for (const QVariant& item : items)
            plist_array_append_item(node.get(), convert(item, depth + 1).release());
        return node;
    }

    Node dictionary(const QVariantMap& entries, int depth) {
        Node node(plist_new_dict());
        for (auto it = entries.begin(); it != entries.end(); ++it) {
            // Both may throw; the item is handed over only once neither can.
            const QByteArray key = utf8(it.key());
            Node item = convert(it.value(), depth + 1);
            plist_dict_set_item(node.get(), key.constData(), item.release());
        }
        return node;
    }
};

struct ReadFailure {
    QString reason;
};

// UTF-8 as written, a leading U+FEFF included: QString::fromUtf8 would drop it as a byte-order mark.
QString fromUtf8(const char* text, qsizetype length) {
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    return decoder.decode(QByteArrayView(text, length));
}

QString stringOf(plist_t node) {
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    if (!text)
        return {};
    if (length > static_cast<uint64_t>(std::numeric_limits<qsizetype>::max()))
        throw ReadFailure{QStringLiteral("a string is too long")};
    return fromUtf8(text, static_cast<qsizetype>(length));
}

QDateTime dateOf(plist_t node) {
    int32_t seconds = 0;
    int32_t micros = 0;
    plist_get_date_val(node, &seconds, &micros);
    // Out-of-range stored doubles come back as the smallest 32-bit value; no sane date is there.
    if (seconds == std::numeric_limits<int32_t>::min())
        throw ReadFailure{QStringLiteral("a date is out of range")};
    // The library hands back the fraction's magnitude, with the sign carried by the seconds.
    const qint64 fractionMSecs = std::abs(micros) / 1000;
    const qint64 msecs = qint64(seconds) * 1000 + (seconds < 0 ? -fractionMSecs : fractionMSecs);
    return QDateTime::fromMSecsSinceEpoch(msecs + referenceDateMSecs, QTimeZone::utc());
}

QVariant toVariant(plist_t node, int depth) {
    if (depth > maximumDepth)
        throw ReadFailure{QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth)};
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return QVariant(value != 0);
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return QVariant(static_cast<qint64>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant(value);
    }
    case PLIST_STRING:
        return QVariant(stringOf(node));
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        return QVariant(QByteArray(bytes, static_cast<qsizetype>(length)));
    }
    case PLIST_DATE:
        return QVariant(dateOf(node));
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return QVariant::fromValue(Uid{value});
    }
    case PLIST_ARRAY: {
        QVariantList items;
        const uint32_t count = plist_array_get_size(node);
        items.reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            plist_t item = plist_array_get_item(node, i);
            if (!item)
                throw ReadFailure{QStringLiteral("an array has a missing element")};
            items.append(toVariant(item, depth + 1));
        }
        return items;
    }
    case PLIST_DICT: {
        QVariantMap entries;
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        std::unique_ptr<void, decltype(&free)> iterOwner(iter, &free);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iter, &key, &value);
            if (!value) {
                free(key);
                break;
            }
            std::unique_ptr<char, decltype(&free)> keyOwner(key, &free);
            if (!key)
                throw ReadFailure{QStringLiteral("a dictionary key is not a string")};
            entries.insert(fromUtf8(key, qsizetype(strlen(key))), toVariant(value, depth + 1));
        }
        return entries;
    }
    case PLIST_KEY:
    case PLIST_NONE:
        break;
    }
    throw ReadFailure{QStringLiteral("an object of unknown type")};
}

} // namespace

bool isBinary(const QByteArray& bytes) {
    return bytes.startsWith("bplist");
}

bool isPropertyListValue(const QVariant& value, Format format) {
    // A worklist rather than recursion: the value's depth is the caller's, not bounded here.
    std::vector<QVariant> pending{value};
    while (!pending.empty()) {
        const QVariant item = std::move(pending.back());
        pending.pop_back();
        switch (internal::kindOf(item)) {
        case Kind::None:
            return false;
        case Kind::Uid:
            if (format != Format::Binary)
                return false;
            break;
        case Kind::Date:
            if (!item.toDateTime().isValid())
                return false;
            break;
        case Kind::Array: {
            const QVariantList items = item.toList();
            pending.insert(pending.end(), items.begin(), items.end());
            break;
        }
        case Kind::Dictionary: {
            const QVariantMap entries = internal::dictionaryOf(item);
            pending.insert(pending.end(), entries.begin(), entries.end());
            break;
        }
        default:
            break;
        }
    }
    return true;
}

std::optional<QByteArray> write(const QVariant& value, Format format, Error* error) {
    auto fail = [&](const QString& reason) -> std::optional<QByteArray> {
        setError(error, makeError(writeInvalidError,
                                  QStringLiteral("Cannot write the property list: %1").arg(reason)));
        return std::nullopt;
    };
    if (format == Format::Binary) {
        QString problem;
        std::optional<QByteArray> bytes = internal::writeBinaryPlist(value, maximumDepth, &problem);
        return bytes ? bytes : fail(problem);
    }
    Node root;
    try {
        root = XmlWriter().convert(value, 0);
    } catch (const WriteFailure& failure) {
        return fail(failure.reason);
    }
    char* output = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &output, &length);
    if (!output)
        return fail(QStringLiteral("libplist wrote nothing"));
    QByteArray bytes(output, static_cast<qsizetype>(length));
    plist_to_xml_free(output);
    return bytes;
}

std::optional<QVariant> read(const QByteArray& bytes, Format* format, Error* error) {
    const bool binary = isBinary(bytes);
    auto fail = [&](const QString& reason) -> std::optional<QVariant> {
        setError(error, makeError(readCorruptError,
                                  QStringLiteral("The property list is not valid: %1").arg(reason)));
        return std::nullopt;
    };
    if (bytes.isEmpty())
        return fail(QStringLiteral("no bytes"));
    if (bytes.size() > maximumInputSize)
        return fail(QStringLiteral("%1 bytes is more than a property list may hold").arg(bytes.size()));
    std::optional<QVariant> value;
    if (binary) {
        QString problem;
        value = internal::readBinaryPlist(bytes, maximumDepth, &problem);
        if (!value)
            return fail(problem);
    } else {
        // libplist's XML parser recurses once per level: the nesting is checked first.
        const QString problem = internal::checkXmlPlistDepth(bytes, maximumDepth);
        if (!problem.isEmpty())
            return fail(problem);
        plist_t parsed = nullptr;
        plist_from_xml(bytes.constData(), static_cast<uint32_t>(bytes.size()), &parsed);
        Node root(parsed);
        if (!root)
            return fail(QStringLiteral("malformed XML"));
        try {
            value = toVariant(root.get(), 0);
        } catch (const ReadFailure& failure) {
            return fail(failure.reason);
        }
    }
    if (format)
        *format = binary ? Format::Binary : Format::Xml;
    return value;
}

} // namespace platform::PropertyList
