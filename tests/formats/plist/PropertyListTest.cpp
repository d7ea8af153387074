#include "formats/plist/PropertyList.h"

#include "support/PlistWriter.h"

#include <QDateTime>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using nuvrel::test::PlistFormat;

namespace {

QVariantMap sample()
{
    return {
        {QStringLiteral("text"), QStringLiteral("Téléphone d'Ana ✓")},
        {QStringLiteral("int"), qint64(-42)},
        {QStringLiteral("big"), qint64(1) << 40},
        {QStringLiteral("real"), 2.5},
        {QStringLiteral("yes"), true},
        {QStringLiteral("date"), QDateTime(QDate(2024, 3, 1), QTime(9, 30, 15), QTimeZone::utc())},
        {QStringLiteral("data"), QByteArray("\x00\x01\xFF", 3)},
        {QStringLiteral("list"), QVariantList{qint64(1), QStringLiteral("two"), QVariantMap{}}},
        {QStringLiteral("nested"), QVariantMap{{QStringLiteral("deep"), QVariantList{}}}},
    };
}

} // namespace

class PropertyListFormats : public testing::TestWithParam<PlistFormat>
{};

TEST_P(PropertyListFormats, ReadsWhatLibplistWrote)
{
    const QVariant read = PropertyList::fromData(test::writePlist(sample(), GetParam()));
    ASSERT_EQ(read.typeId(), QMetaType::QVariantMap);
    const QVariantMap map = read.toMap();
    EXPECT_EQ(map.value(QStringLiteral("text")).toString(), QStringLiteral("Téléphone d'Ana ✓"));
    EXPECT_EQ(map.value(QStringLiteral("int")).toLongLong(), -42);
    EXPECT_EQ(map.value(QStringLiteral("big")).toLongLong(), qint64(1) << 40);
    EXPECT_EQ(map.value(QStringLiteral("real")).toDouble(), 2.5);
    EXPECT_EQ(map.value(QStringLiteral("yes")).typeId(), QMetaType::Bool);
    EXPECT_EQ(map.value(QStringLiteral("date")).toDateTime(),
              QDateTime(QDate(2024, 3, 1), QTime(9, 30, 15), QTimeZone::utc()));
    EXPECT_EQ(map.value(QStringLiteral("data")).toByteArray(), QByteArray("\x00\x01\xFF", 3));
    const QVariantList list = map.value(QStringLiteral("list")).toList();
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(list[1].toString(), QStringLiteral("two"));
    EXPECT_EQ(list[2].typeId(), QMetaType::QVariantMap);
}

INSTANTIATE_TEST_SUITE_P(BinaryAndXml, PropertyListFormats, testing::Values(PlistFormat::Binary, PlistFormat::Xml),
                         [](const testing::TestParamInfo<PlistFormat>& format) {
                             return format.param == PlistFormat::Binary ? "Binary" : "Xml";
                         });

TEST(PropertyList, UnreadableInputGivesNoValue)
{
    EXPECT_FALSE(PropertyList::fromData({}).isValid());
    EXPECT_FALSE(PropertyList::fromData("not a property list at all").isValid());
    EXPECT_FALSE(PropertyList::fromData(QByteArray("bplist00\x00\x01", 10)).isValid());
    EXPECT_FALSE(PropertyList::fromData("<?xml version=\"1.0\"?><plist><dict><key>a</key>").isValid());
    EXPECT_FALSE(PropertyList::readFile(QStringLiteral("/nonexistent/Info.plist")).isValid());
    // Truncating a sound binary list anywhere must not crash the reader.
    const QByteArray whole = test::writePlist(sample(), PlistFormat::Binary);
    for (qsizetype length = 0; length < whole.size(); ++length)
        PropertyList::fromData(whole.first(length));
}

TEST(PropertyList, HostileNestingDoesNotExhaustTheStack)
{
    QByteArray xml("<?xml version=\"1.0\"?><plist version=\"1.0\">");
    const int depth = 20000;
    for (int i = 0; i < depth; ++i)
        xml += "<array>";
    for (int i = 0; i < depth; ++i)
        xml += "</array>";
    xml += "</plist>";
    const QVariant value = PropertyList::fromData(xml);
    // Either refused or cut off below the depth limit; what matters is an answer without a crash.
    EXPECT_TRUE(!value.isValid() || value.typeId() == QMetaType::QVariantList);
}
