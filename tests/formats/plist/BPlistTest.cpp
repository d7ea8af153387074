#include "formats/plist/BPlist.h"

#include "support/PlistWriter.h"
#include "support/RawBPlist.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <cmath>

using namespace nuvrel;
using nuvrel::test::RawBPlist;

namespace {

PV decodeTop(const QByteArray& bytes)
{
    const std::optional<BPlist> plist = BPlist::fromData(bytes);
    return plist ? plist->object(plist->top(), 0) : PV();
}

// One object on its own, decoded as the top.
PV single(const QByteArray& object)
{
    RawBPlist raw;
    raw.add(object);
    return decodeTop(raw.build(0));
}

} // namespace

TEST(BPlist, HeaderAndTrailerChecks)
{
    RawBPlist raw;
    raw.add(raw.integer(7, 0));
    const QByteArray sound = raw.build(0);
    ASSERT_EQ(sound.size(), 8 + 2 + 1 + 32); // 43 bytes
    EXPECT_TRUE(BPlist::fromData(sound));

    QByteArray shortOne = QByteArray("bplist00") + QByteArray(32, '\0');
    EXPECT_EQ(shortOne.size(), 40);
    EXPECT_FALSE(BPlist::fromData(shortOne));

    // A 41-byte list: the offset table's single entry (8) is also the object it points at (0x08, false).
    QByteArray minimal = QByteArray("bplist00") + char(0x08) + QByteArray(6, '\0') + char(1) + char(1) +
                         QByteArray(7, '\0') + char(1) + QByteArray(8, '\0') + QByteArray(7, '\0') + char(8);
    ASSERT_EQ(minimal.size(), 41);
    ASSERT_TRUE(BPlist::fromData(minimal));
    EXPECT_EQ(*BPlist::fromData(minimal)->object(0, 0).asBool(), false);
    EXPECT_FALSE(BPlist::fromData(minimal.sliced(1).prepend('b').sliced(1))); // 40 bytes

    QByteArray version15 = sound;
    version15[6] = '1';
    version15[7] = '5';
    EXPECT_TRUE(BPlist::fromData(version15));
    QByteArray wrongMagic = sound;
    wrongMagic[0] = 'B';
    EXPECT_FALSE(BPlist::fromData(wrongMagic));

    const auto tweaked = [&raw](auto tweak) { return BPlist::fromData(raw.build(0, tweak)).has_value(); };
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.offsetSize = 0; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.offsetSize = 9; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.refSize = 0; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.refSize = 9; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.objectCount = 0; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.objectCount = 5'000'000; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.objectCount = 40; })); // the table would overrun the data
    EXPECT_TRUE(tweaked([](RawBPlist::Trailer& t) { t.objectCount = 2; }));   // overlapping the trailer is allowed
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.tablePosition = 1'000; }));
    EXPECT_FALSE(tweaked([](RawBPlist::Trailer& t) { t.tablePosition = ~quint64(0); })); // no wrap-around
    EXPECT_TRUE(tweaked([](RawBPlist::Trailer& t) { t.top = ~quint64(0); }));            // accepted, top reads null
    EXPECT_TRUE(decodeTop(raw.build(0, [](RawBPlist::Trailer& t) { t.top = ~quint64(0); })).isNull());
}

TEST(BPlist, ObjectCountJustBelowTheLimitIsAccepted)
{
    // 4,999,999 one-byte offsets all pointing at the same object.
    QByteArray bytes = QByteArray("bplist00") + char(0x09);
    bytes += QByteArray(4'999'999, char(8));
    QByteArray trailer(32, '\0');
    trailer[6] = 1;
    trailer[7] = 1;
    const quint64 count = 4'999'999;
    for (int i = 0; i < 8; ++i)
        trailer[8 + i] = static_cast<char>((count >> (56 - 8 * i)) & 0xFF);
    trailer[31] = 9;
    const std::optional<BPlist> plist = BPlist::fromData(bytes + trailer);
    ASSERT_TRUE(plist);
    EXPECT_EQ(plist->objectCount(), 4'999'999);
    EXPECT_EQ(*plist->object(4'999'998, 0).asBool(), true);
}

TEST(BPlist, ScalarsDecodeByTheirMarkers)
{
    RawBPlist raw;
    EXPECT_EQ(*single(raw.integer(0xFF, 0)).asInt(), 255);
    EXPECT_EQ(*single(raw.integer(~quint64(0), 3)).asInt(), -1);
    EXPECT_EQ(*single(raw.integer(0x1234, 1)).asInt(), 0x1234);
    // A 16-byte integer yields its first eight bytes.
    EXPECT_EQ(*single(QByteArray(1, char(0x14)) + QByteArray(7, '\0') + char(5) + QByteArray(8, '\x7F')).asInt(), 5);
    EXPECT_EQ(*single(raw.real(-1.25)).asReal(), -1.25);
    EXPECT_EQ(*single(QByteArray(1, char(0x22)) + QByteArray(4, '\x40')).asReal(), 0.0); // 4-byte real: 0.0, not null
    EXPECT_TRUE(single(QByteArray(1, char(0x33)) + QByteArray(8, '\x41')).isNull());     // dates are not read
    EXPECT_EQ(*single(QByteArray(1, char(0x08))).asBool(), false);
    EXPECT_EQ(*single(QByteArray(1, char(0x09))).asBool(), true);
    EXPECT_TRUE(single(QByteArray(1, char(0x00))).isNull());
    EXPECT_TRUE(single(QByteArray(1, char(0x0F))).isNull());
    for (char marker : {char(0x70), char(0x90), char(0xB0), char(0xC0), char(0xE0), char(0xF0)})
        EXPECT_TRUE(single(QByteArray(1, marker) + QByteArray(8, '\0')).isNull()) << int(quint8(marker));
    EXPECT_EQ(*single(raw.uid(7, 1)).asUid(), PV::Uid{7});
    EXPECT_EQ(*single(raw.uid(0x010203, 3)).asUid(), PV::Uid{0x010203});
    EXPECT_EQ(*single(raw.data(QByteArray("\x00\x01", 2))).asData(), QByteArray("\x00\x01", 2));
}

TEST(BPlist, StringsAndCountsAreBoundsChecked)
{
    RawBPlist raw;
    EXPECT_EQ(*single(raw.ascii("Size")).asString(), QStringLiteral("Size"));
    EXPECT_EQ(*single(raw.ascii("caf\xC3\xA9")).asString(), QStringLiteral("café")); // UTF-8 in an "ASCII" string
    EXPECT_EQ(*single(raw.ascii("a\xFF"
                                "b"))
                   .asString(),
              QStringLiteral("a\uFFFDb")); // repaired, not rejected
    EXPECT_EQ(*single(raw.utf16(QStringLiteral("Ćao 😀"))).asString(), QStringLiteral("Ćao 😀"));
    EXPECT_EQ(*single(raw.utf16(QString(QChar(0xD800)))).asString(), QString()); // lone surrogate: empty
    const QString longText(300, u'x');
    EXPECT_EQ(*single(raw.ascii(longText.toLatin1())).asString(), longText); // extended count
    // Counts that run past the end give null, whatever their width.
    EXPECT_TRUE(single(raw.counted(0x5, 200) + "short").isNull());
    EXPECT_TRUE(single(raw.counted(0x4, 0xFFFFFFFFFFFFFFFFull)).isNull());
    EXPECT_TRUE(single(raw.counted(0x6, 0x8000000000000000ull) + "ab").isNull());
    // An extended count whose own marker lies past the end counts 15.
    RawBPlist cut;
    cut.add(QByteArray(1, char(0x4F)));
    const QByteArray bytes = cut.build(0);
    EXPECT_TRUE(decodeTop(bytes).isNull());
}

TEST(BPlist, ArraysKeepThePositionsOfUnreadableElements)
{
    RawBPlist raw;
    const int one = raw.add(raw.integer(1, 0));
    const int date = raw.add(QByteArray(1, char(0x33)) + QByteArray(8, '\0'));
    const int array = raw.add(raw.array({static_cast<quint64>(one), static_cast<quint64>(date), 250}));
    const PV list = decodeTop(raw.build(array));
    ASSERT_TRUE(list.asArray());
    ASSERT_EQ(list.asArray()->size(), 3u);
    EXPECT_EQ(*(*list.asArray())[0].asInt(), 1);
    EXPECT_TRUE((*list.asArray())[1].isNull()); // a null element keeps its place
    EXPECT_TRUE((*list.asArray())[2].isNull()); // reference 250 names no object
}

TEST(BPlist, DictionaryRules)
{
    RawBPlist raw;
    const int one = raw.add(raw.integer(1, 0));
    const int key = raw.add(raw.ascii("k"));
    const int intKey = raw.add(raw.integer(9, 0));
    const int two = raw.add(raw.integer(2, 0));
    const int date = raw.add(QByteArray(1, char(0x33)) + QByteArray(8, '\0'));
    const int other = raw.add(raw.utf16(QStringLiteral("other")));
    const int dict = raw.add(raw.dict({quint64(key), quint64(intKey), quint64(key), quint64(other)},
                                      {quint64(one), quint64(one), quint64(two), quint64(date)}));
    const PV value = decodeTop(raw.build(dict));
    ASSERT_TRUE(value.asDict());
    EXPECT_EQ(value.asDict()->size(), 2u);                    // the integer key is dropped
    EXPECT_EQ(*value.value(QStringLiteral("k"))->asInt(), 2); // the later duplicate wins
    ASSERT_TRUE(value.value(QStringLiteral("other")));
    EXPECT_TRUE(value.value(QStringLiteral("other"))->isNull()); // a null value under a text key is kept

    const std::optional<BPlist> plist = BPlist::fromData(raw.build(dict));
    const std::optional<BPlist::Object> object = plist->locate(dict, 0);
    ASSERT_TRUE(object);
    EXPECT_EQ(plist->dictValue(*object, 0, QLatin1StringView("k")), two);
    EXPECT_EQ(plist->dictValue(*object, 0, QLatin1StringView("other")), date);
    EXPECT_EQ(plist->dictValue(*object, 0, QLatin1StringView("missing")), std::nullopt);
}

TEST(BPlist, CountLimitsOfContainers)
{
    // An array of 999,999 references is read; one more makes it null. Likewise dictionaries at 1,000,000.
    for (const auto& [kind, count, readable] :
         {std::tuple{quint8(0xA), quint64(999'999), true}, std::tuple{quint8(0xA), quint64(1'000'000), false},
          std::tuple{quint8(0xD), quint64(1'000'000), false}}) {
        RawBPlist raw;
        const int leaf = raw.add(raw.integer(3, 0));
        QByteArray container = raw.counted(kind, count);
        container += QByteArray(static_cast<qsizetype>(count) * (kind == 0xD ? 2 : 1), char(leaf));
        const int top = raw.add(container);
        const PV value = decodeTop(raw.build(top));
        EXPECT_EQ(!value.isNull(), readable) << int(kind) << ' ' << count;
        if (readable) {
            EXPECT_EQ(value.asArray()->size(), count);
        }
    }
}

TEST(BPlist, NestingStopsAtTwelveLevelsAndSharedReferencesCannotExplode)
{
    // Thirteen nested arrays: the innermost one, at level 12, reads as null.
    RawBPlist raw;
    raw.add(raw.array({}));
    for (int i = 1; i < 13; ++i)
        raw.add(raw.array({static_cast<quint64>(i - 1)}));
    const PV top = decodeTop(raw.build(12));
    const PV* level = &top;
    for (int depth = 0; depth < 11; ++depth) {
        ASSERT_TRUE(level->asArray()) << depth;
        level = &level->asArray()->front();
    }
    ASSERT_TRUE(level->asArray());                   // level 11 still decodes...
    EXPECT_TRUE(level->asArray()->front().isNull()); // ...but what it holds, at level 12, does not

    // An array that lists itself fifteen times would make 15^12 nodes; the decode budget stops it.
    RawBPlist bomb;
    bomb.add(bomb.array(QList<quint64>(15, 0)));
    const std::optional<BPlist> plist = BPlist::fromData(bomb.build(0));
    ASSERT_TRUE(plist);
    bool complete = true;
    const PV exploded = plist->object(0, 0, &complete);
    EXPECT_FALSE(complete);
    EXPECT_TRUE(exploded.asArray());

    // A self-referencing dictionary ends at the depth limit.
    RawBPlist loop;
    loop.add(loop.ascii("self"));
    loop.add(loop.dict({0}, {1}));
    complete = false;
    const PV looped = BPlist::fromData(loop.build(1))->object(1, 0, &complete);
    EXPECT_TRUE(complete);
    EXPECT_TRUE(looped.asDict());
}

TEST(BPlist, OffsetsAndReferencesOutsideTheDataReadAsNull)
{
    RawBPlist raw;
    raw.add(raw.integer(5, 0));
    QByteArray bytes = raw.build(0);
    bytes[8 + 2] = char(0xF0); // the only offset now points past the data
    EXPECT_TRUE(decodeTop(bytes).isNull());
    const std::optional<BPlist> plist = BPlist::fromData(bytes);
    ASSERT_TRUE(plist);
    EXPECT_EQ(plist->be(-1, 1), 0u);
    EXPECT_EQ(plist->be(0, 0), 0u);
    EXPECT_EQ(plist->be(bytes.size() - 1, 2), 0u);
    EXPECT_EQ(plist->be(0, 6), 0x62706c697374u); // "bplist"
    EXPECT_TRUE(plist->object(-1, 0).isNull());
    EXPECT_TRUE(plist->object(1, 0).isNull());
    EXPECT_TRUE(plist->object(0, 12).isNull());
}

namespace {

// A random property-list tree, as Qt values for libplist and as the PV we expect back.
std::pair<QVariant, PV> randomTree(QRandomGenerator& random, int depth)
{
    // The top is always a container; leaves come more often the deeper the tree goes.
    const int kind =
        depth == 0 ? 6 + static_cast<int>(random.bounded(2)) : static_cast<int>(random.bounded(depth >= 4 ? 6 : 8));
    switch (kind) {
    case 0: {
        const bool value = random.bounded(2) == 1;
        return {value, PV(value)};
    }
    case 1: {
        const qint64 value = static_cast<qint64>(random.generate64() >> (1 + random.bounded(63)));
        return {value, PV(value)};
    }
    case 2: {
        const double value = std::ldexp(random.generateDouble(), static_cast<int>(random.bounded(40)) - 20);
        // libplist writes a real that a float holds exactly in four bytes, which reads as 0.0.
        return {value, PV(static_cast<double>(static_cast<float>(value)) == value ? 0.0 : value)};
    }
    case 3: {
        QString text;
        const int length = static_cast<int>(random.bounded(40));
        for (int i = 0; i < length; ++i)
            text.append(random.bounded(4) == 0 ? QChar(0x400 + random.bounded(200)) : QChar(u'a' + random.bounded(26)));
        return {text, PV(text)};
    }
    case 4: {
        QByteArray bytes(static_cast<qsizetype>(random.bounded(60)), '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random.bounded(256));
        return {bytes, PV(bytes)};
    }
    case 5: {
        const quint64 value = random.bounded(1u << 20);
        return {QVariant::fromValue(test::PlistUid{value}), PV(PV::Uid{static_cast<qint64>(value)})};
    }
    case 6: {
        QVariantList list;
        PV::Array array;
        for (int i = 0, n = static_cast<int>(random.bounded(depth == 0 ? 20 : 6)); i < n; ++i) {
            auto [variant, pv] = randomTree(random, depth + 1);
            list.append(variant);
            array.push_back(std::move(pv));
        }
        return {list, PV(std::move(array))};
    }
    default: {
        QVariantMap map;
        PV::Dict dict;
        for (int i = 0, n = static_cast<int>(random.bounded(depth == 0 ? 20 : 6)); i < n; ++i) {
            const QString key = QStringLiteral("key%1").arg(random.bounded(1000));
            auto [variant, pv] = randomTree(random, depth + 1);
            map.insert(key, variant);
            dict.insert_or_assign(key, std::move(pv));
        }
        return {map, PV(std::move(dict))};
    }
    }
}

} // namespace

TEST(BPlist, DecodesWhatLibplistWritesForRandomTrees)
{
    QRandomGenerator random(20261122); // fixed seed: a failure can be replayed
    for (int round = 0; round < 400; ++round) {
        const auto [variant, expected] = randomTree(random, 0);
        const QByteArray bytes = test::writePlist(variant, test::PlistFormat::Binary);
        ASSERT_EQ(decodeTop(bytes), expected) << "round " << round;
    }
}
