#include "marlockCompanionCommon/platform/PropertyList.h"

#include "tests/platform/QVariantPrinter.h"

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

struct PythonResult {
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

PythonResult runPython(const QString& script, const QByteArray& input = {}) {
    QProcess python;
    python.start(QStringLiteral("python3"), {QStringLiteral("-c"), script});
    if (!python.waitForStarted())
        return {};
    python.write(input);
    python.closeWriteChannel();
    python.waitForFinished(60000);
    return {python.exitStatus() == QProcess::NormalExit ? python.exitCode() : -1,
            python.readAllStandardOutput(), python.readAllStandardError()};
}

// The same values as sampleValues(), as Python's plistlib sees them (naive datetimes are UTC).
const char* pythonSample = R"(
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

// Dates in XML carry whole seconds only.
QVariantMap withoutSubsecondDates(QVariantMap values) {
    values.remove("dateWithMilliseconds");
    values.remove("dateBefore2001");
    return values;
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

} // namespace

TEST(PropertyList, RoundTripsEveryValueTypeInBothFormats) {
    const QVariantMap all = sampleValues();
    for (plist::Format format : {plist::Format::Binary, plist::Format::Xml}) {
        const QVariantMap values = format == plist::Format::Xml ? withoutSubsecondDates(all) : all;
        const std::optional<QByteArray> bytes = plist::write(values, format);
        ASSERT_TRUE(bytes.has_value());
        EXPECT_EQ(plist::isBinary(*bytes), format == plist::Format::Binary);
        plist::Format detected{};
        const std::optional<QVariant> back = plist::read(*bytes, &detected);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(detected, format);
        const QVariantMap map = back->toMap();
        for (auto it = values.begin(); it != values.end(); ++it) {
            EXPECT_EQ(map.value(it.key()), it.value())
                << qPrintable(it.key()) << " in format " << int(format);
            EXPECT_EQ(map.value(it.key()).typeId(), it.value().typeId()) << qPrintable(it.key());
        }
        EXPECT_EQ(map.size(), values.size());
    }
}

TEST(PropertyList, WritesOtherIntegerTypesAsIntegersAndUidsOnlyInBinary) {
    const QVariantList values{int(-7), uint(7), QVariant::fromValue<short>(3), QStringList{"a", "b"},
                              QVariant::fromValue(plist::Uid{12})};
    const std::optional<QByteArray> bytes = plist::write(values, plist::Format::Binary);
    ASSERT_TRUE(bytes.has_value());
    const QVariantList back = plist::read(*bytes)->toList();
    ASSERT_EQ(back.size(), 5);
    EXPECT_EQ(back[0], QVariant(qint64(-7)));
    EXPECT_EQ(back[1], QVariant(qint64(7)));
    EXPECT_EQ(back[2], QVariant(qint64(3)));
    EXPECT_EQ(back[3], QVariant(QVariantList{"a", "b"}));
    EXPECT_EQ(back[4].value<plist::Uid>(), plist::Uid{12});

    Error error;
    EXPECT_FALSE(plist::write(QVariant::fromValue(plist::Uid{1}), plist::Format::Xml, &error));
    EXPECT_EQ(error.code, plist::writeInvalidError);
}

TEST(PropertyList, RefusesToWriteWhatAPropertyListCannotHold) {
    QVariant deep = QVariantList{};
    for (int i = 0; i < 300; ++i)
        deep = QVariantList{deep};
    const QList<std::pair<const char*, QVariant>> cases{
        {"invalid variant", QVariant()},
        {"point", QPoint(1, 2)},
        {"nested point", QVariantMap{{"p", QPoint(1, 2)}}},
        {"unsigned above the signed range", QVariant::fromValue(std::numeric_limits<quint64>::max())},
        {"string with NUL", QString(QChar(0))},
        {"key with NUL", QVariantMap{{QString(QChar(0)), 1}}},
        {"invalid date", QDateTime()},
        {"date beyond 32-bit seconds", utc(2100, 1, 1, 0, 0, 0)},
        {"nesting of 300 levels", deep},
    };
    for (const auto& [what, value] : cases) {
        for (plist::Format format : {plist::Format::Binary, plist::Format::Xml}) {
            Error error;
            EXPECT_FALSE(plist::write(value, format, &error).has_value()) << what;
            EXPECT_EQ(error.domain, plist::errorDomain) << what;
            EXPECT_EQ(error.code, plist::writeInvalidError) << what;
            EXPECT_FALSE(error.description().isEmpty()) << what;
        }
    }
}

TEST(PropertyList, RejectsMalformedInputWithAnError) {
    const QByteArray good = *plist::write(sampleValues(), plist::Format::Binary);
    const QByteArray xml = *plist::write(sampleValues(), plist::Format::Xml);
    expectRejected({}, "empty");
    expectRejected("hello", "not a plist");
    expectRejected("bplist", "magic only");
    expectRejected("bplist00" + QByteArray(40, '\xff'), "garbage after the magic");
    expectRejected(good.left(good.size() / 2), "truncated binary");
    expectRejected(xml.left(xml.size() / 2), "truncated XML");
    expectRejected("<?xml version=\"1.0\"?><plist><dict><key>a</key></plist>", "unbalanced XML");
    // Every single-byte truncation of the binary form fails cleanly.
    for (qsizetype length = 0; length < good.size(); length += 7)
        EXPECT_FALSE(plist::read(good.left(length)).has_value()) << "truncated at " << length;
}

TEST(PropertyList, RejectsHostileObjectGraphs) {
    const QByteArray one("\x10\x01", 2);
    // A dictionary whose key is an integer.
    expectRejected(bplist({QByteArray("\xd1\x01\x02", 3), one, one}), "integer key");
    // A dictionary whose key holds a NUL, in ASCII and in UTF-16.
    expectRejected(bplist({QByteArray("\xd1\x01\x02", 3), QByteArray("\x53\x61\x00\x62", 4), one}),
                   "ASCII key with NUL");
    expectRejected(bplist({QByteArray("\xd1\x01\x02", 3), QByteArray("\x61\x00\x00", 3), one}),
                   "UTF-16 key with NUL");
    EXPECT_EQ(plist::read(bplist({QByteArray("\xd1\x01\x02", 3), QByteArray("\x61\x00\xe9", 3), one})),
              QVariant(QVariantMap{{QStringLiteral("é"), qint64(1)}}));
    // An array that contains itself.
    expectRejected(bplist({QByteArray("\xa1\x00", 2)}), "self-containing array");
    // A reference past the object table.
    expectRejected(bplist({QByteArray("\xa1\x05", 2)}), "dangling reference");
    // Forty arrays, each holding the next one twice: 2^40 nodes once expanded.
    QList<QByteArray> doubling;
    for (int i = 0; i < 40; ++i)
        doubling << QByteArray("\xa2", 1) + char(i + 1) + char(i + 1);
    doubling << one;
    expectRejected(bplist(doubling), "exponential sharing");
    // Nesting deeper than any real archive.
    QList<QByteArray> chain;
    for (int i = 0; i < 250; ++i)
        chain << QByteArray("\xa1", 1) + char(i + 1);
    chain << one;
    EXPECT_TRUE(plist::read(bplist(chain)).has_value()) << "250 levels are fine";
    QByteArray deepXml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int i = 0; i < 5000; ++i)
        deepXml += "<array>";
    deepXml += "<true/>";
    for (int i = 0; i < 5000; ++i)
        deepXml += "</array>";
    deepXml += "</plist>";
    expectRejected(deepXml, "5000 levels of XML");
    // Closing tags hidden in a comment do not make room for more nesting.
    QByteArray hiddenClosings = "<?xml version=\"1.0\"?><plist version=\"1.0\"><!--";
    for (int i = 0; i < 5000; ++i)
        hiddenClosings += "</array>";
    hiddenClosings += "-->";
    for (int i = 0; i < 300; ++i)
        hiddenClosings += "<array>";
    expectRejected(hiddenClosings, "nesting behind a comment");
    EXPECT_TRUE(plist::read("<?xml version=\"1.0\"?><plist version=\"1.0\"><array><array/><dict/>"
                            "<dict><key>a</key><array></array></dict></array></plist>")
                    .has_value())
        << "empty and self-closing containers";
    // A trailer promising an offset table far outside the data.
    QByteArray absurd = bplist({one});
    absurd.replace(absurd.size() - 8, 8, QByteArray("\x7f\xff\xff\xff\xff\xff\xff\xff", 8));
    expectRejected(absurd, "offset table outside the data");
}

TEST(PropertyList, InteroperatesWithPythonPlistlib) {
    const QVariantMap values = sampleValues();
    for (const auto& [format, name] :
         {std::pair{plist::Format::Binary, "FMT_BINARY"}, {plist::Format::Xml, "FMT_XML"}}) {
        const QVariantMap expected = format == plist::Format::Xml ? withoutSubsecondDates(values) : values;
        // Ours, read by plistlib.
        const PythonResult check = runPython(QString::fromUtf8(pythonSample) + QStringLiteral(R"(
got = plistlib.loads(sys.stdin.buffer.read())
want = {k: v for k, v in sample.items() if k in got}
print('ok' if got == want and len(got) == %1 else repr((got, want)))
)")
                                                                                   .arg(expected.size()),
                                             *plist::write(expected, format));
        EXPECT_EQ(check.exitCode, 0) << check.errors.constData();
        EXPECT_EQ(check.output.trimmed(), "ok") << name << ": " << check.output.constData();

        // plistlib's, read here.
        const PythonResult made = runPython(QString::fromUtf8(pythonSample) + QStringLiteral(R"(
sys.stdout.buffer.write(plistlib.dumps(sample, fmt=plistlib.%1))
)")
                                                                                  .arg(QLatin1String(name)));
        ASSERT_EQ(made.exitCode, 0) << made.errors.constData();
        plist::Format detected{};
        const std::optional<QVariant> read = plist::read(made.output, &detected);
        ASSERT_TRUE(read.has_value()) << name;
        EXPECT_EQ(detected, format);
        const QVariantMap map = read->toMap();
        for (auto it = values.begin(); it != values.end(); ++it) {
            // plistlib writes XML dates with whole seconds.
            if (format == plist::Format::Xml && !expected.contains(it.key()))
                EXPECT_EQ(map.value(it.key()).toDateTime().time().msec(), 0);
            else
                EXPECT_EQ(map.value(it.key()), it.value()) << name << ": " << qPrintable(it.key());
        }
    }
}

TEST(PropertyList, ReadsAndWritesKeyedArchiveUidsLikePlistlib) {
    const PythonResult made = runPython(QStringLiteral(R"(
import plistlib, sys
sys.stdout.buffer.write(plistlib.dumps({'$top': {'root': plistlib.UID(1)}, '$objects': ['$null', plistlib.UID(300)]}, fmt=plistlib.FMT_BINARY))
)"));
    ASSERT_EQ(made.exitCode, 0) << made.errors.constData();
    const QVariantMap archive = plist::read(made.output)->toMap();
    EXPECT_EQ(archive["$top"].toMap()["root"].value<plist::Uid>(), plist::Uid{1});
    EXPECT_EQ(archive["$objects"].toList().value(1).value<plist::Uid>(), plist::Uid{300});

    const QVariantMap ours{{"root", QVariant::fromValue(plist::Uid{70000})}};
    const PythonResult check = runPython(QStringLiteral(R"(
import plistlib, sys
got = plistlib.loads(sys.stdin.buffer.read())
print('ok' if got == {'root': plistlib.UID(70000)} else repr(got))
)"),
                                         *plist::write(ours, plist::Format::Binary));
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
