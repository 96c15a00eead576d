// The keyed archiver and unarchiver: the standard layout, round trips of every built-in class and
// of classes that code themselves, and secure decoding that refuses whatever it was not asked for.
#include "ArchiveTestSupport.h"

#include "marlockCompanionCommon/keychain/KeyedArchiver.h"
#include "marlockCompanionCommon/keychain/KeyedUnarchiver.h"

#include <QDateTime>
#include <QSize>

#include <gtest/gtest.h>

using namespace platform;
using namespace archivetest;

namespace {

const QStringList everything = {"NSObject"};
const QVariantMap arrayClass = classDescription("NSArray", {"NSArray", "NSObject"});

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

// The layout itself is checked by the plistlib interop test; here, how objects are shared.
TEST(KeyedArchiver, StoresEqualStringsOnceAndNumbersAsThemselves) {
    const QVariantMap root =
        PropertyList::read(KeyedArchiver::archivedData(QVariantList{"a", "a", 7}, true)).value().toMap();
    const QVariantList objects = root.value("$objects").toList();
    const auto at = [&](const QVariant& ref) {
        EXPECT_EQ(ref.metaType(), QMetaType::fromType<PropertyList::Uid>());
        return objects.value(static_cast<qsizetype>(ref.value<PropertyList::Uid>().value));
    };
    const QVariantList members =
        at(root.value("$top").toMap().value("root")).toMap().value("NS.objects").toList();
    ASSERT_EQ(members.size(), 3);
    EXPECT_EQ(members[0], members[1]);
    EXPECT_EQ(at(members[0]), "a");
    EXPECT_EQ(at(members[2]).toLongLong(), 7);
}

TEST(KeyedArchiver, BuiltInValuesRoundTrip) {
    const QVariantMap value{
        {"string", QStringLiteral("héllo ✓")},
        {"empty", QString()},
        {"nul", QStringLiteral("\uFEFFa") + QChar(0) + QStringLiteral("b")},
        {"integer", qint64(-9'000'000'000)},
        {"int", 42},
        {"real", 2.5},
        {"yes", true},
        {"data", QByteArray("\x00\x01\xff", 3)},
        {"date", QDateTime::fromMSecsSinceEpoch(1'700'000'000'123, Qt::UTC)},
        {"null", QVariant::fromValue(nullptr)},
        {"list", QVariantList{1, QVariantList{"nested"}, QVariantMap{{"k", "v"}}}},
        {"strings", QStringList{"x", "y"}},
        {"set", QVariant::fromValue(ArchivedSet{{1, 2}})},
    };
    const QVariantMap back =
        KeyedUnarchiver::unarchivedObjectOfClasses(everything, KeyedArchiver::archivedData(value, true))
            .toMap();
    for (const char* key : {"string", "empty", "nul", "integer", "int", "real", "data", "date", "list"})
        EXPECT_EQ(back.value(key), value.value(key)) << key;
    // Types that QVariant's comparison would let pass as equal to others.
    EXPECT_EQ(back.value("yes").metaType().id(), QMetaType::Bool);
    EXPECT_EQ(back.value("null").metaType().id(), QMetaType::Nullptr);
    EXPECT_EQ(back.value("strings").toStringList(), QStringList({"x", "y"}));
    EXPECT_EQ(back.value("set").value<ArchivedSet>().objects, QVariantList({1, 2}));

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
    const auto point = decoded<Waypoint>(back[0]);
    ASSERT_TRUE(point);
    EXPECT_TRUE(*point == *first);
    EXPECT_FALSE(*point == *first->next);

    // The class is written with its name, and refused when the reader does not list it.
    EXPECT_TRUE(archive.contains("TestWaypoint"));
    EXPECT_TRUE(refusal(archive, {"NSArray"}).contains("TestWaypoint"));
}

TEST(KeyedArchiver, RefusesWhatItCannotEncode) {
    // Types with no archived form (the jr_ helpers' test checks the exception's name and reason),
    // invalid dates, integers past the signed range, and anything after the end.
    for (const QVariant& value :
         {QVariant::fromValue(QSize(1, 2)), QVariant(QDateTime()), QVariant::fromValue(quint64(1) << 63)})
        EXPECT_THROW(KeyedArchiver::archivedData(value, true), ArchiveException) << value.typeName();
    KeyedArchiver archiver;
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
}

TEST(KeyedUnarchiver, DamagedArchivesAreErrorsNeverCrashes) {
    const auto array = [](const QVariant& members) {
        return handMade({"$null", QVariantMap{{"$class", uid(2)}, {"NS.objects", members}}, arrayClass});
    };
    const std::vector<std::pair<QByteArray, const char*>> cases = {
        // Not an archive at all.
        {"hello", "binary property list"},
        {"bplist00garbage", "not a property list"},
        {PropertyList::write(QVariantList{1}, PropertyList::Format::Binary).value(), "dictionary"},
        {handMade({"$null", "x"}, {{"root", uid(1)}}, "Other"), "keyed archiver"},
        {handMade({"$null", "x"}, {{"root", uid(1)}}, "NSKeyedArchiver", 7), "version"},
        {handMade({"x"}), "$null"},
        // References past the end, a root that is not a reference, an array that contains itself.
        {handMade({"$null", "x"}, {{"root", uid(9)}}), "refers to object 9"},
        {handMade({"$null", "x"}, {{"root", 1}}), "not an object reference"},
        {array(QVariantList{uid(5)}), "refers to object 5"},
        {array(QVariantList{uid(1)}), "refers to itself"},
        // Unknown classes, class references that are not class descriptions, members of the wrong type.
        {handMade({"$null", QVariantMap{{"$class", uid(2)}}, classDescription("Evil", {"Evil"})}),
         "unknown class 'Evil'"},
        {handMade({"$null", QVariantMap{{"$class", uid(1)}}}), "$classname"},
        {array("no"), "not an array"},
        {handMade({"$null",
                   QVariantMap{
                       {"$class", uid(2)}, {"NS.keys", QVariantList{uid(3)}}, {"NS.objects", QVariantList{}}},
                   classDescription("NSDictionary", {"NSDictionary"}), "k"}),
         "1 keys and 0 values"},
        {handMade({"$null", QDateTime::currentDateTimeUtc()}), "unexpected type"},
    };
    for (const auto& [archive, reason] : cases) {
        const QString refused = refusal(archive, everything);
        EXPECT_TRUE(refused.contains(QLatin1String(reason))) << reason << " / " << refused.toStdString();
    }
}

TEST(KeyedUnarchiver, AbsurdStructuresAreRefused) {
    // `levels` arrays, each holding the next one `copies` times, the last holding a leaf.
    const auto nested = [](int levels, int copies, const QVariant& leaf) {
        QVariantList objects{"$null", arrayClass};
        for (quint64 i = 0; i < quint64(levels); ++i)
            objects.append(QVariantMap{{"$class", uid(1)}, {"NS.objects", QVariantList(copies, uid(i + 3))}});
        objects.append(leaf);
        return handMade(objects, {{"root", uid(2)}});
    };
    // Deeper than any real archive; a few hundred bytes that expand to 2^40 values.
    EXPECT_TRUE(refusal(nested(300, 1, "leaf"), everything).contains("deeper"));
    EXPECT_TRUE(refusal(nested(40, 2, 1), everything).contains("expands"));
    // Shared references within reason are fine.
    EXPECT_EQ(KeyedUnarchiver::unarchivedObjectOfClasses(everything, nested(2, 2, 5)).toList(),
              QVariantList({QVariantList{5, 5}, QVariantList{5, 5}}));
}

TEST(KeyedUnarchiver, SelfCodingClassesGetAbsentForWrongTypesAndFailuresEndDecoding) {
    Waypoint::registerClass();
    const QVariantMap waypointClass = classDescription(Waypoint::name, {Waypoint::name, "NSObject"});
    const QVariantMap fields{{"$class", uid(2)},   {"label", uid(3)},  {"latitude", 1.5},
                             {"order", qint64(3)}, {"visited", false}, {"note", QByteArray("n")}};
    const QVariant good = KeyedUnarchiver::unarchivedObjectOfClasses(
        {Waypoint::name}, handMade({"$null", fields, waypointClass, "here"}));
    ASSERT_TRUE(decoded<Waypoint>(good));

    // A field of the wrong type, a dangling reference, a waypoint whose next is itself, and a label
    // that is a number: absent for the class, which then fails.
    const std::vector<std::tuple<const char*, QVariant, QVariant, const char*>> cases = {
        {"order", "three", "here", "wrong type"},
        {"label", uid(40), "here", "object 40"},
        {"next", uid(1), "here", "itself"},
        {"label", uid(3), 12, "NSNumber"},
    };
    for (const auto& [field, value, third, reason] : cases) {
        QVariantMap broken = fields;
        broken.insert(field, value);
        const QString refused = refusal(handMade({"$null", broken, waypointClass, third}), {Waypoint::name});
        EXPECT_TRUE(refused.contains(QLatin1String(reason))) << reason << " / " << refused.toStdString();
    }
}
