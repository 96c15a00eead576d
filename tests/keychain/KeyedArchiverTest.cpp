// The keyed archiver and unarchiver: the standard layout, round trips of every built-in class and
// of classes that code themselves, and secure decoding that refuses whatever it was not asked for.
#include "ArchiveTestSupport.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/platform/KeyedArchiver.h"
#include "marlockCompanionCommon/platform/KeyedUnarchiver.h"

#include <QDateTime>
#include <QSize>

#include <gtest/gtest.h>

using namespace platform;
using namespace archivetest;

namespace {

const QStringList everything = {"NSObject"};

QVariantMap parsed(const QByteArray& archive) {
    return PropertyList::read(archive).value().toMap();
}

QString refusal(const QByteArray& archive, const QStringList& classes) {
    try {
        KeyedUnarchiver::unarchivedObjectOfClasses(classes, archive);
    } catch (const ArchiveException& exception) {
        EXPECT_EQ(exception.name(), KeyedArchive::invalidUnarchiveOperationException);
        return exception.reason();
    }
    return QStringLiteral("(decoded)");
}

} // namespace

TEST(KeyedArchiver, WritesTheStandardLayout) {
    const QByteArray archive = KeyedArchiver::archivedData(QVariantList{"a", "a", 7}, true);
    ASSERT_TRUE(archive.startsWith("bplist00"));
    const QVariantMap root = parsed(archive);
    EXPECT_EQ(root.value("$archiver"), "NSKeyedArchiver");
    EXPECT_EQ(root.value("$version").toLongLong(), 100000);
    const QVariantList objects = root.value("$objects").toList();
    ASSERT_FALSE(objects.isEmpty());
    EXPECT_EQ(objects.front(), "$null");

    const QVariant top = root.value("$top").toMap().value("root");
    ASSERT_EQ(top.metaType(), QMetaType::fromType<PropertyList::Uid>());
    const QVariantMap array =
        objects.at(static_cast<qsizetype>(top.value<PropertyList::Uid>().value)).toMap();
    const QVariantList members = array.value("NS.objects").toList();
    ASSERT_EQ(members.size(), 3);
    // Equal strings are stored once and referred to twice; numbers are stored as themselves.
    EXPECT_EQ(members[0], members[1]);
    EXPECT_EQ(objects.at(static_cast<qsizetype>(members[0].value<PropertyList::Uid>().value)), "a");
    EXPECT_EQ(objects.at(static_cast<qsizetype>(members[2].value<PropertyList::Uid>().value)).toLongLong(),
              7);

    const QVariantMap cls =
        objects.at(static_cast<qsizetype>(array.value("$class").value<PropertyList::Uid>().value)).toMap();
    EXPECT_EQ(cls.value("$classname"), "NSArray");
    EXPECT_EQ(cls.value("$classes").toStringList(), QStringList({"NSArray", "NSObject"}));
}

TEST(KeyedArchiver, BuiltInValuesRoundTrip) {
    const QDateTime date = QDateTime::fromMSecsSinceEpoch(1'700'000'000'123, Qt::UTC);
    const QVariantMap value{
        {"string", QStringLiteral("héllo ✓")},
        {"empty", QString()},
        {"integer", qint64(-9'000'000'000)},
        {"int", 42},
        {"real", 2.5},
        {"yes", true},
        {"data", QByteArray("\x00\x01\xff", 3)},
        {"date", date},
        {"null", QVariant::fromValue(nullptr)},
        {"list", QVariantList{1, QVariantList{"nested"}, QVariantMap{{"k", "v"}}}},
        {"strings", QStringList{"x", "y"}},
        {"set", QVariant::fromValue(ArchivedSet{{1, 2}})},
    };
    const QVariant back =
        KeyedUnarchiver::unarchivedObjectOfClasses(everything, KeyedArchiver::archivedData(value, true));
    const QVariantMap map = back.toMap();
    EXPECT_EQ(map.value("string"), QStringLiteral("héllo ✓"));
    EXPECT_EQ(map.value("empty"), QString());
    EXPECT_EQ(map.value("integer").toLongLong(), -9'000'000'000);
    EXPECT_EQ(map.value("int").toLongLong(), 42);
    EXPECT_EQ(map.value("real").toDouble(), 2.5);
    EXPECT_EQ(map.value("yes").metaType().id(), QMetaType::Bool);
    EXPECT_EQ(map.value("data").toByteArray(), QByteArray("\x00\x01\xff", 3));
    EXPECT_EQ(map.value("date").toDateTime(), date);
    EXPECT_EQ(map.value("null").metaType().id(), QMetaType::Nullptr);
    EXPECT_EQ(map.value("list").toList().at(1).toList(), QVariantList{"nested"});
    EXPECT_EQ(map.value("list").toList().at(2).toMap().value("k"), "v");
    EXPECT_EQ(map.value("strings").toStringList(), QStringList({"x", "y"}));
    EXPECT_EQ(map.value("set").value<ArchivedSet>().objects, QVariantList({1, 2}));

    // A nil root archives and unarchives as nil.
    EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectOfClasses(everything, KeyedArchiver::archivedData({}, true))
                     .isValid());
}

TEST(KeyedArchiver, ClassesThatCodeThemselvesRoundTrip) {
    Waypoint::registerClass();
    auto first = std::make_shared<Waypoint>();
    first->label = "start";
    first->latitude = 52.5;
    first->order = 1;
    first->visited = true;
    first->note = QByteArray("\x00z", 2);
    first->next = std::make_shared<Waypoint>();
    first->next->label = "end";
    first->next->order = 2;

    const QByteArray archive = KeyedArchiver::archivedData(QVariantList{object(first)}, true);
    const QVariantList back =
        KeyedUnarchiver::unarchivedObjectOfClasses({"NSArray", Waypoint::name}, archive).toList();
    ASSERT_EQ(back.size(), 1);
    const auto point =
        std::static_pointer_cast<Waypoint>(back[0].value<std::shared_ptr<marlockCommon::SecureCoding>>());
    ASSERT_TRUE(point);
    EXPECT_EQ(point->label, "start");
    EXPECT_EQ(point->latitude, 52.5);
    EXPECT_EQ(point->order, 1);
    EXPECT_TRUE(point->visited);
    EXPECT_EQ(point->note, QByteArray("\x00z", 2));
    ASSERT_TRUE(point->next);
    EXPECT_EQ(point->next->label, "end");
    EXPECT_FALSE(point->next->next);

    // The class is written with its name, and refused when the reader does not list it.
    EXPECT_TRUE(archive.contains("TestWaypoint"));
    EXPECT_TRUE(refusal(archive, {"NSArray"}).contains("TestWaypoint"));
}

TEST(KeyedArchiver, AnArrayOfTokensRoundTripsUnderTheTokenAllowList) {
    QVariantList tokens;
    for (int i = 0; i < 3; ++i) {
        marlockCommon::TokenRecord record;
        record.type = i == 2 ? marlockCommon::OTPType::hotp : marlockCommon::OTPType::totp;
        record.issuer = QStringLiteral("Issuer %1").arg(i);
        record.account = QStringLiteral("user%1@example.org").arg(i);
        record.secret = QByteArray("12345678901234567890").left(10 + i);
        record.algorithm = marlockCommon::OTPAlgorithm::sha256;
        record.digits = 6 + i;
        record.counter = 1ull << 40;
        tokens.append(object(record.toOTPToken()));
    }
    const QByteArray archive = KeyedArchiver::archivedData(tokens, true);
    const QVariantList back =
        KeyedUnarchiver::unarchivedObjectOfClasses({"NSArray", "OTPToken", "NSNumber", "NSValue"}, archive)
            .toList();
    ASSERT_EQ(back.size(), 3);
    for (int i = 0; i < 3; ++i) {
        const auto original = std::static_pointer_cast<marlockCommon::OTPToken>(
            tokens[i].value<std::shared_ptr<marlockCommon::SecureCoding>>());
        const auto token = std::dynamic_pointer_cast<marlockCommon::OTPToken>(
            back[i].value<std::shared_ptr<marlockCommon::SecureCoding>>());
        ASSERT_TRUE(token);
        EXPECT_EQ(token->toTokenRecord(), original->toTokenRecord());
    }
}

TEST(KeyedArchiver, RefusesWhatItCannotEncode) {
    KeyedArchiver archiver;
    try {
        archiver.encodeObject(QVariant::fromValue(QSize(1, 2)), "root");
        FAIL() << "encoded a QSize";
    } catch (const ArchiveException& exception) {
        EXPECT_EQ(exception.name(), KeyedArchive::invalidArchiveOperationException);
        EXPECT_TRUE(exception.reason().contains("QSize"));
    }
    EXPECT_THROW(KeyedArchiver::archivedData(QDateTime(), true), ArchiveException);
    EXPECT_THROW(KeyedArchiver::archivedData(QVariant::fromValue(quint64(1) << 63), true), ArchiveException);

    archiver.finishEncoding();
    EXPECT_THROW(archiver.encodeInt64(1, "late"), ArchiveException);
}

TEST(KeyedUnarchiver, SecureDecodingRefusesClassesNotAllowed) {
    const QByteArray strings = KeyedArchiver::archivedData(QVariantList{"text"}, true);
    EXPECT_EQ(KeyedUnarchiver::unarchivedObjectOfClasses({"NSArray", "NSString"}, strings).toList(),
              QVariantList{"text"});
    EXPECT_TRUE(refusal(strings, {"NSArray", "NSNumber"}).contains("NSString"));
    EXPECT_TRUE(refusal(strings, {"NSString"}).contains("NSArray"));

    // NSNumber derives from NSValue, NSMutableArray from NSArray.
    const QByteArray numbers = KeyedArchiver::archivedData(QVariantList{1, 2.5}, true);
    EXPECT_EQ(KeyedUnarchiver::unarchivedObjectOfClasses({"NSArray", "NSValue"}, numbers).toList().size(), 2);
    const QByteArray mutableArray =
        handMade({"$null", QVariantMap{{"$class", uid(2)}, {"NS.objects", QVariantList{}}},
                  classDescription("NSMutableArray", {"NSMutableArray", "NSArray", "NSObject"})});
    EXPECT_TRUE(KeyedUnarchiver::unarchivedObjectOfClasses({"NSArray"}, mutableArray).toList().isEmpty());

    // Without secure coding the allow-list is not consulted.
    KeyedUnarchiver lenient(strings);
    lenient.setRequiresSecureCoding(false);
    EXPECT_EQ(lenient.decodeValueOfClasses({}, "root").toList(), QVariantList{"text"});
}

TEST(KeyedUnarchiver, DamagedArchivesAreErrorsNeverCrashes) {
    // Not an archive at all.
    EXPECT_TRUE(refusal("hello", everything).contains("binary property list"));
    EXPECT_TRUE(refusal(QByteArray("bplist00garbage"), everything).contains("not a property list"));
    EXPECT_TRUE(
        refusal(PropertyList::write(QVariantList{1}, PropertyList::Format::Binary).value(), everything)
            .contains("dictionary"));
    EXPECT_TRUE(refusal(handMade({"$null", "x"}, {{"root", uid(1)}}, "Other"), everything)
                    .contains("keyed archiver"));
    EXPECT_TRUE(refusal(handMade({"$null", "x"}, {{"root", uid(1)}}, "NSKeyedArchiver", 7), everything)
                    .contains("version"));
    EXPECT_TRUE(refusal(handMade({"x"}), everything).contains("$null"));

    const QVariantMap arrayClass = classDescription("NSArray", {"NSArray", "NSObject"});
    // A reference past the end, a root that is not a reference.
    EXPECT_TRUE(
        refusal(handMade({"$null", "x"}, {{"root", uid(9)}}), everything).contains("refers to object 9"));
    EXPECT_TRUE(
        refusal(handMade({"$null", "x"}, {{"root", 1}}), everything).contains("not an object reference"));
    EXPECT_TRUE(
        refusal(handMade({"$null", QVariantMap{{"$class", uid(2)}, {"NS.objects", QVariantList{uid(5)}}},
                          arrayClass}),
                everything)
            .contains("refers to object 5"));
    // An array that contains itself.
    EXPECT_TRUE(
        refusal(handMade({"$null", QVariantMap{{"$class", uid(2)}, {"NS.objects", QVariantList{uid(1)}}},
                          arrayClass}),
                everything)
            .contains("refers to itself"));
    // Unknown classes, class references that are not class descriptions, members of the wrong type.
    EXPECT_TRUE(
        refusal(handMade({"$null", QVariantMap{{"$class", uid(2)}}, classDescription("Evil", {"Evil"})}),
                everything)
            .contains("unknown class 'Evil'"));
    EXPECT_TRUE(
        refusal(handMade({"$null", QVariantMap{{"$class", uid(1)}}}), everything).contains("$classname"));
    EXPECT_TRUE(
        refusal(handMade({"$null", QVariantMap{{"$class", uid(2)}, {"NS.objects", "no"}}, arrayClass}),
                everything)
            .contains("not an array"));
    EXPECT_TRUE(refusal(handMade({"$null",
                                  QVariantMap{{"$class", uid(2)},
                                              {"NS.keys", QVariantList{uid(3)}},
                                              {"NS.objects", QVariantList{}}},
                                  classDescription("NSDictionary", {"NSDictionary"}), "k"}),
                        everything)
                    .contains("1 keys and 0 values"));
    EXPECT_TRUE(refusal(handMade({"$null", QDateTime::currentDateTimeUtc()}), everything)
                    .contains("unexpected type"));
    // A string the archiver could never write back: "Xé" (stored as UTF-16) patched to hold a NUL.
    QByteArray nul = KeyedArchiver::archivedData(QStringLiteral("Xé"), true);
    const QByteArray utf16("\x00X\x00\xe9", 4);
    ASSERT_EQ(nul.count(utf16), 1);
    nul[nul.indexOf(utf16) + 1] = '\0';
    EXPECT_TRUE(refusal(nul, everything).contains("NUL")) << refusal(nul, everything).toStdString();
}

TEST(KeyedUnarchiver, AbsurdStructuresAreRefused) {
    const QVariantMap arrayClass = classDescription("NSArray", {"NSArray", "NSObject"});
    // 300 arrays, each holding the next: deeper than any real archive.
    QVariantList deep{"$null", arrayClass};
    for (int i = 0; i < 300; ++i)
        deep.append(
            QVariantMap{{"$class", uid(1)}, {"NS.objects", QVariantList{uid(static_cast<quint64>(i + 3))}}});
    deep.append("leaf");
    EXPECT_TRUE(refusal(handMade(deep, {{"root", uid(2)}}), everything).contains("deeper"));

    // 40 arrays, each holding the next one twice: a few hundred bytes that expand to 2^40 values.
    QVariantList bomb{"$null", arrayClass};
    for (int i = 0; i < 40; ++i) {
        const QVariant next = uid(static_cast<quint64>(i + 3));
        bomb.append(QVariantMap{{"$class", uid(1)}, {"NS.objects", QVariantList{next, next}}});
    }
    bomb.append(1);
    EXPECT_TRUE(refusal(handMade(bomb, {{"root", uid(2)}}), everything).contains("expands"));

    // Shared references within reason are fine.
    QVariantList shared{"$null", arrayClass,
                        QVariantMap{{"$class", uid(1)}, {"NS.objects", QVariantList{uid(3), uid(3)}}},
                        QVariantMap{{"$class", uid(1)}, {"NS.objects", QVariantList{uid(4)}}}, 5};
    EXPECT_EQ(KeyedUnarchiver::unarchivedObjectOfClasses(everything, handMade(shared, {{"root", uid(2)}}))
                  .toList()
                  .size(),
              2);
}

TEST(KeyedUnarchiver, SelfCodingClassesGetAbsentForWrongTypesAndFailuresEndDecoding) {
    Waypoint::registerClass();
    const QVariantMap waypointClass = classDescription(Waypoint::name, {Waypoint::name, "NSObject"});
    const QVariantMap fields{{"$class", uid(2)},   {"label", uid(3)},  {"latitude", 1.5},
                             {"order", qint64(3)}, {"visited", false}, {"note", QByteArray("n")}};
    const QVariant good = KeyedUnarchiver::unarchivedObjectOfClasses(
        {Waypoint::name}, handMade({"$null", fields, waypointClass, "here"}));
    ASSERT_TRUE(good.value<std::shared_ptr<marlockCommon::SecureCoding>>());

    QVariantMap wrong = fields;
    wrong.insert("order", "three"); // a string where an integer belongs
    EXPECT_TRUE(
        refusal(handMade({"$null", wrong, waypointClass, "here"}), {Waypoint::name}).contains("wrong type"));

    QVariantMap dangling = fields;
    dangling.insert("label", uid(40));
    EXPECT_TRUE(refusal(handMade({"$null", dangling, waypointClass, "here"}), {Waypoint::name})
                    .contains("object 40"));

    // A waypoint whose next is itself.
    QVariantMap loop = fields;
    loop.insert("next", uid(1));
    EXPECT_TRUE(
        refusal(handMade({"$null", loop, waypointClass, "here"}), {Waypoint::name}).contains("itself"));

    // A label that is a number: absent for the class, which then fails.
    QVariantMap numberLabel = fields;
    numberLabel.insert("label", uid(3));
    EXPECT_TRUE(
        refusal(handMade({"$null", numberLabel, waypointClass, 12}), {Waypoint::name}).contains("NSNumber"));
}
