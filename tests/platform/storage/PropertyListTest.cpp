#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include "tests/platform/storage/QVariantPrinter.h"

#include <QDateTime>
#include <QPoint>
#include <QProcess>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <limits>

using namespace platform;
namespace plist = platform::PropertyList;

namespace {

QDateTime utc(int year, int month, int day, int hour, int minute, int second, int msec = 0) {
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), QTimeZone::utc());
}

// Every kind of value, nested, with edge values where the encodings change width or sign.
QVariantMap sampleValues() {
    return {
        {"string", QStringLiteral("héllo ✓ 𝄞")},
        {"emptyString", QString("")},
        {"data", QByteArray("\x00\x01\xfe\xff", 4)},
        {"true", true},
        {"false", false},
        {"zero", qint64(0)},
        {"byte", qint64(255)},
        {"short", qint64(256)},
        {"negative", qint64(-42)},
        {"big", qint64(1) << 40},
        {"min", std::numeric_limits<qint64>::min()},
        {"max", std::numeric_limits<qint64>::max()},
        {"real", 2.5},
        {"negativeReal", -0.125},
        {"date", utc(2024, 2, 29, 12, 34, 56)},
        {"dateWithMilliseconds", utc(2001, 1, 1, 0, 0, 1, 250)},
        {"dateBefore2001", utc(1999, 12, 31, 23, 59, 58, 500)},
        {"array", QVariantList{qint64(1), QStringLiteral("two"), QVariantList{3.0}, QVariantMap{}}},
        {"dict", QVariantMap{{"nested", QVariantMap{{"deeper", QVariantList{}}}}}},
    };
}

// Dates in XML carry whole seconds only.
QVariantMap sampleFor(plist::Format format) {
    QVariantMap values = sampleValues();
    if (format == plist::Format::Xml) {
        values.remove("dateWithMilliseconds");
        values.remove("dateBefore2001");
    }
    return values;
}

// The same values as sampleValues(), as Python's plistlib sees them (naive datetimes are UTC),
// followed by `script`.
struct PythonResult {
    int exitCode = -1;
    QByteArray output, errors;
};
PythonResult runPython(const QString& script, const QByteArray& input = {}) {
    static const char* sample = R"(
import datetime, plistlib, sys
sample = {
    'string': 'héllo ✓ 𝄞', 'emptyString': '', 'data': b'\x00\x01\xfe\xff', 'true': True, 'false': False,
    'zero': 0, 'byte': 255, 'short': 256, 'negative': -42, 'big': 1 << 40, 'min': -(1 << 63),
    'max': (1 << 63) - 1, 'real': 2.5, 'negativeReal': -0.125,
    'date': datetime.datetime(2024, 2, 29, 12, 34, 56),
    'dateWithMilliseconds': datetime.datetime(2001, 1, 1, 0, 0, 1, 250000),
    'dateBefore2001': datetime.datetime(1999, 12, 31, 23, 59, 58, 500000),
    'array': [1, 'two', [3.0], {}], 'dict': {'nested': {'deeper': []}},
}
)";
    QProcess python;
    python.start(QStringLiteral("python3"), {QStringLiteral("-c"), QString::fromUtf8(sample) + script});
    if (!python.waitForStarted())
        return {};
    python.write(input);
    python.closeWriteChannel();
    python.waitForFinished(60000);
    return {python.exitStatus() == QProcess::NormalExit ? python.exitCode() : -1,
            python.readAllStandardOutput(), python.readAllStandardError()};
}

// A binary plist from raw object encodings, with one-byte offsets and references.
QByteArray bplist(const QList<QByteArray>& objects, quint8 top = 0) {
    QByteArray bytes("bplist00");
    QByteArray offsets;
    for (const QByteArray& object : objects) {
        offsets.append(char(bytes.size()));
        bytes.append(object);
    }
    const auto tableOffset = quint8(bytes.size());
    bytes.append(offsets);
    QByteArray trailer(32, '\0');
    trailer[6] = 1;
    trailer[7] = 1;
    trailer[15] = char(objects.size());
    trailer[23] = char(top);
    trailer[31] = char(tableOffset);
    return bytes + trailer;
}

void expectRejected(const QByteArray& bytes, const char* what) {
    Error error;
    EXPECT_FALSE(plist::read(bytes, nullptr, &error).has_value()) << what;
    EXPECT_EQ(error.domain, plist::errorDomain) << what;
    EXPECT_EQ(error.code, plist::readCorruptError) << what;
}

const QByteArray xmlPrologue = "<?xml version=\"1.0\"?><plist version=\"1.0\">";

} // namespace

TEST(PropertyList, WritesOtherIntegerTypesAsIntegersAndUidsOnlyInBinary) {
    const QVariantList values{int(-7), uint(7), QVariant::fromValue<short>(3), QStringList{"a", "b"},
                              QVariant::fromValue(plist::Uid{12})};
    const QVariantList back = plist::read(*plist::write(values, plist::Format::Binary))->toList();
    ASSERT_EQ(back.size(), 5);
    expectSameValues({{"0", back[0]}, {"1", back[1]}, {"2", back[2]}, {"3", back[3]}},
                     {{"0", qint64(-7)}, {"1", qint64(7)}, {"2", qint64(3)}, {"3", QVariantList{"a", "b"}}});
    EXPECT_EQ(back[4].value<plist::Uid>(), plist::Uid{12});

    Error error;
    EXPECT_FALSE(plist::write(QVariant::fromValue(plist::Uid{1}), plist::Format::Xml, &error));
    EXPECT_EQ(error.code, plist::writeInvalidError);
}

TEST(PropertyList, RefusesToWriteWhatAFormatCannotHold) {
    QVariant deep = QVariantList{};
    for (int i = 0; i < 300; ++i)
        deep = QVariantList{deep};
    const QString nul(QChar(0));
    const struct {
        const char* what;
        QVariant value;
        bool inBinary, inXml; // whether the format can hold it
        bool hasForm;         // whether its types alone are property-list types
    } cases[] = {
        {"invalid variant", QVariant(), false, false, false},
        {"point", QPoint(1, 2), false, false, false},
        {"nested point", QVariantMap{{"p", QPoint(1, 2)}}, false, false, false},
        {"invalid date", QDateTime(), false, false, false},
        {"nesting of 300 levels", deep, false, false, true},
        {"date after year 9999", utc(9999, 12, 31, 23, 59, 59, 999).addMSecs(1), false, false, true},
        {"unsigned above the signed range", QVariant::fromValue(std::numeric_limits<quint64>::max()), true,
         false, true},
        {"string with NUL", nul, true, false, true},
        {"key with NUL", QVariantMap{{nul, 1}}, true, false, true},
        {"date beyond 32-bit seconds", utc(2100, 1, 1, 0, 0, 0), true, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(plist::isPropertyListValue(c.value), c.hasForm);
        for (const auto& [format, holds] :
             {std::pair{plist::Format::Binary, c.inBinary}, {plist::Format::Xml, c.inXml}}) {
            Error error;
            EXPECT_EQ(plist::write(c.value, format, &error).has_value(), holds) << int(format);
            if (!holds) {
                EXPECT_EQ(error.domain, plist::errorDomain);
                EXPECT_EQ(error.code, plist::writeInvalidError);
                EXPECT_FALSE(error.description().isEmpty());
            }
        }
    }
    EXPECT_FALSE(plist::isPropertyListValue(QVariant::fromValue(plist::Uid{1}), plist::Format::Xml));
}

TEST(PropertyList, RejectsMalformedInputWithAnError) {
    const QByteArray good = *plist::write(sampleValues(), plist::Format::Binary);
    const QByteArray xml = *plist::write(sampleValues(), plist::Format::Xml);
    expectRejected("hello", "not a plist");
    expectRejected("bplist", "magic only");
    expectRejected("bplist00" + QByteArray(40, '\xff'), "garbage after the magic");
    expectRejected(xml.left(xml.size() / 2), "truncated XML");
    expectRejected("<?xml version=\"1.0\"?><plist><dict><key>a</key></plist>", "unbalanced XML");
    // Truncations all through the binary form, the empty input first, fail cleanly.
    for (qsizetype length = 0; length < good.size(); length += 7)
        expectRejected(good.left(length), qPrintable(QStringLiteral("truncated at %1").arg(length)));
}

TEST(PropertyList, RejectsHostileObjectGraphs) {
    const QByteArray one("\x10\x01", 2);
    const QByteArray dict("\xd1\x01\x02", 3); // one entry: key object 1, value object 2
    // Forty arrays, each holding the next one twice: 2^40 nodes once expanded.
    QList<QByteArray> doubling;
    for (int i = 0; i < 40; ++i)
        doubling << QByteArray("\xa2", 1) + char(i + 1) + char(i + 1);
    // A trailer promising an offset table far outside the data.
    QByteArray absurd = bplist({one});
    absurd.replace(absurd.size() - 8, 8, QByteArray("\x7f\xff\xff\xff\xff\xff\xff\xff", 8));
    const QList<std::pair<const char*, QByteArray>> hostile{
        {"integer key", bplist({dict, one, one})},
        {"null object", bplist({QByteArray(1, '\0')})},
        {"byte above 0x7F in an ASCII string", bplist({QByteArray("\x51\xe9", 2)})},
        {"string running past the data", bplist({QByteArray("\x5f\x10\x7f", 3) + "ab"})},
        {"integer beyond 64 bits", bplist({"\x14" + QByteArray(7, '\0') + "\x01" + QByteArray(8, '\0')})},
        {"NaN date", bplist({QByteArray("\x33\x7f\xf8\0\0\0\0\0\0", 9)})},
        {"infinite date", bplist({QByteArray("\x33\xff\xf0\0\0\0\0\0\0", 9)})},
        {"self-containing array", bplist({QByteArray("\xa1\x00", 2)})},
        {"dangling reference", bplist({QByteArray("\xa1\x05", 2)})},
        {"exponential sharing", bplist(doubling << one)},
        {"5000 levels of XML", xmlPrologue + QByteArray("<array>").repeated(5000) + "<true/>" +
                                   QByteArray("</array>").repeated(5000) + "</plist>"},
        // Closing tags hidden in a comment do not make room for more nesting.
        {"nesting behind a comment", xmlPrologue + "<!--" + QByteArray("</array>").repeated(5000) + "-->" +
                                         QByteArray("<array>").repeated(300)},
        {"offset table outside the data", absurd},
    };
    for (const auto& [what, bytes] : hostile)
        expectRejected(bytes, what);

    EXPECT_EQ(plist::read(bplist({dict, QByteArray("\x61\x00\xe9", 3), one})),
              QVariant(QVariantMap{{QStringLiteral("é"), qint64(1)}}));
    const QString nulKey = QStringLiteral("a") + QChar(0) + QStringLiteral("b");
    EXPECT_EQ(plist::read(bplist({dict, QByteArray("\x53\x61\x00\x62", 4), one})),
              QVariant(QVariantMap{{nulKey, qint64(1)}}))
        << "keys with NUL are keys like any other";
    QList<QByteArray> chain;
    for (int i = 0; i < 250; ++i)
        chain << QByteArray("\xa1", 1) + char(i + 1);
    EXPECT_TRUE(plist::read(bplist(chain << one)).has_value()) << "250 levels are fine";
    EXPECT_TRUE(plist::read(xmlPrologue +
                            "<array><array/><dict/><dict><key>a</key><array></array></dict></array>"
                            "</plist>")
                    .has_value())
        << "empty and self-closing containers";
}

// Every value type through our writer and reader, and each way between us and plistlib.
TEST(PropertyList, RoundTripsEveryValueTypeAndInteroperatesWithPythonPlistlib) {
    for (const auto& [format, name] :
         {std::pair{plist::Format::Binary, "FMT_BINARY"}, {plist::Format::Xml, "FMT_XML"}}) {
        SCOPED_TRACE(name);
        const QVariantMap expected = sampleFor(format);
        const std::optional<QByteArray> ours = plist::write(expected, format);
        ASSERT_TRUE(ours.has_value());
        EXPECT_EQ(plist::isBinary(*ours), format == plist::Format::Binary);
        plist::Format detected{};
        const std::optional<QVariant> back = plist::read(*ours, &detected);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(detected, format);
        expectSameValues(back->toMap(), expected);

        // Ours, read by plistlib.
        const PythonResult check = runPython(QStringLiteral(R"(
got = plistlib.loads(sys.stdin.buffer.read())
want = {k: v for k, v in sample.items() if k in got}
print('ok' if got == want and len(got) == %1 else repr((got, want)))
)")
                                                 .arg(expected.size()),
                                             *ours);
        EXPECT_EQ(check.exitCode, 0) << check.errors.constData();
        EXPECT_EQ(check.output.trimmed(), "ok") << check.output.constData();

        // plistlib's, read here; it writes XML dates with whole seconds.
        const PythonResult made = runPython(
            QStringLiteral("sys.stdout.buffer.write(plistlib.dumps(sample, fmt=plistlib.%1))").arg(name));
        ASSERT_EQ(made.exitCode, 0) << made.errors.constData();
        detected = {};
        const std::optional<QVariant> read = plist::read(made.output, &detected);
        ASSERT_TRUE(read.has_value());
        EXPECT_EQ(detected, format);
        QVariantMap map = read->toMap();
        for (const char* key : {"dateWithMilliseconds", "dateBefore2001"})
            if (!expected.contains(key)) {
                EXPECT_EQ(map.take(key).toDateTime().time().msec(), 0);
            }
        expectSameValues(map, expected);
    }
}

// What libplist lost: strings with NUL or a leading U+FEFF, integers above 2^63 - 1, dates
// beyond 32-bit seconds. Binary keeps them all, each way between us and plistlib; XML keeps
// the U+FEFF.
TEST(PropertyList, BinaryKeepsEveryStringIntegerAndDateExactlyLikePlistlib) {
    const QVariantMap values{
        {"nul", QStringLiteral("a") + QChar(0) + QStringLiteral("b")},
        {"wideNul", QStringLiteral("é") + QChar(0) + QStringLiteral("中")},
        {"bom", QStringLiteral("\uFEFFabc")},
        {QStringLiteral("key") + QChar(0), true},
        {"unsigned", QVariant::fromValue(std::numeric_limits<quint64>::max())},
        {"ancient", utc(1, 1, 1, 0, 0, 0, 500)},
        {"future", utc(9999, 12, 31, 23, 59, 59, 500)},
    };
    const QString python = QStringLiteral(R"(
values = {'nul': 'a\x00b', 'wideNul': '\xe9\x00\u4e2d', 'bom': '\ufeffabc', 'key\x00': True,
          'unsigned': (1 << 64) - 1, 'ancient': datetime.datetime(1, 1, 1, 0, 0, 0, 500000),
          'future': datetime.datetime(9999, 12, 31, 23, 59, 59, 500000)}
)");
    const QByteArray ours = plist::write(values, plist::Format::Binary).value();
    expectSameValues(plist::read(ours)->toMap(), values);
    const PythonResult check = runPython(
        python + "got = plistlib.loads(sys.stdin.buffer.read())\nprint('ok' if got == values else repr(got))",
        ours);
    EXPECT_EQ(check.output.trimmed(), "ok") << check.output.constData() << check.errors.constData();

    const PythonResult made =
        runPython(python + "sys.stdout.buffer.write(plistlib.dumps(values, fmt=plistlib.FMT_BINARY))");
    ASSERT_EQ(made.exitCode, 0) << made.errors.constData();
    expectSameValues(plist::read(made.output)->toMap(), values);

    const PythonResult xml = runPython(python + "sys.stdout.buffer.write(plistlib.dumps([values['bom']]))");
    ASSERT_EQ(xml.exitCode, 0) << xml.errors.constData();
    EXPECT_EQ(plist::read(xml.output), QVariant(QVariantList{QStringLiteral("\uFEFFabc")}));
}

TEST(PropertyList, ReadsAndWritesKeyedArchiveUidsLikePlistlib) {
    const PythonResult made =
        runPython(QStringLiteral("sys.stdout.buffer.write(plistlib.dumps({'$top': {'root': plistlib.UID(1)}, "
                                 "'$objects': ['$null', plistlib.UID(300)]}, fmt=plistlib.FMT_BINARY))"));
    ASSERT_EQ(made.exitCode, 0) << made.errors.constData();
    const QVariantMap archive = plist::read(made.output)->toMap();
    EXPECT_EQ(archive["$top"].toMap()["root"].value<plist::Uid>(), plist::Uid{1});
    EXPECT_EQ(archive["$objects"].toList().value(1).value<plist::Uid>(), plist::Uid{300});

    const PythonResult check = runPython(
        QStringLiteral("got = plistlib.loads(sys.stdin.buffer.read())\n"
                       "print('ok' if got == {'root': plistlib.UID(70000)} else repr(got))"),
        *plist::write(QVariantMap{{"root", QVariant::fromValue(plist::Uid{70000})}}, plist::Format::Binary));
    EXPECT_EQ(check.output.trimmed(), "ok") << check.output.constData() << check.errors.constData();
}

TEST(PropertyList, CountsDatesInSecondsFrom2001) {
    const QByteArray xml = *plist::write(utc(2001, 1, 1, 0, 0, 1, 999), plist::Format::Xml);
    EXPECT_TRUE(xml.contains("<date>2001-01-01T00:00:01Z</date>")) << xml.constData();
    EXPECT_EQ(plist::read(xml)->toDateTime(), utc(2001, 1, 1, 0, 0, 1));

    const QByteArray bytes = *plist::write(utc(2001, 1, 1, 0, 1, 40), plist::Format::Binary);
    // A date is the marker 0x33 and a big-endian double: 100.0 seconds past the reference date.
    EXPECT_TRUE(bytes.contains(QByteArray("\x33\x40\x59\x00\x00\x00\x00\x00\x00", 9)));
    EXPECT_EQ(plist::read(bplist({QByteArray("\x33\xc0\x59\x00\x00\x00\x00\x00\x00", 9)}))->toDateTime(),
              utc(2000, 12, 31, 23, 58, 20));
}
