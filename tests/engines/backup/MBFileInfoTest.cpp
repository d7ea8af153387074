#include "engines/backup/MBFileInfo.h"
#include "formats/plist/BPlist.h"

#include "support/FileRecordBlob.h"
#include "support/RawBPlist.h"

#include <QRandomGenerator>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

// The reading the slow, obvious way: decode the whole tree, then walk it.
std::optional<MBFileInfo> viaTree(const QByteArray& blob, bool* complete = nullptr)
{
    const std::optional<BPlist> plist = BPlist::fromData(blob);
    if (!plist)
        return std::nullopt;
    return MBFileInfo::fromArchive(plist->object(plist->top(), 0, complete));
}

// A hand-made archive whose root record maps the given keys to the given objects.
struct ArchiveBuilder
{
    RawBPlist raw;
    QList<quint64> objects;    // the "$objects" entries
    QList<quint64> recordKeys; // the root record
    QList<quint64> recordValues;

    int add(const QByteArray& object) { return raw.add(object); }
    void field(const QByteArray& key, int valueObject)
    {
        recordKeys.append(static_cast<quint64>(raw.add(raw.ascii(key))));
        recordValues.append(static_cast<quint64>(valueObject));
    }
    // Builds {"$top": {"root": uid(rootUid)}, "$objects": [...]} with the record at position 1.
    QByteArray build(QByteArray rootUid = {}, bool withTop = true)
    {
        const int null = raw.add(raw.ascii("$null"));
        const int record = raw.add(raw.dict(recordKeys, recordValues));
        QList<quint64> all{static_cast<quint64>(null), static_cast<quint64>(record)};
        all += objects;
        const int objectsArray = raw.add(raw.array(all));
        const int rootKey = raw.add(raw.ascii("root"));
        const int rootValue = raw.add(rootUid.isEmpty() ? raw.uid(1) : rootUid);
        const int top = raw.add(raw.dict({quint64(rootKey)}, {quint64(rootValue)}));
        const int objectsKey = raw.add(raw.ascii("$objects"));
        const int topKey = raw.add(raw.ascii("$top"));
        QList<quint64> keys{quint64(objectsKey)};
        QList<quint64> values{quint64(objectsArray)};
        if (withTop) {
            keys.append(quint64(topKey));
            values.append(quint64(top));
        }
        const int archive = raw.add(raw.dict(keys, values));
        return raw.build(static_cast<quint64>(archive));
    }
    // Appends an entry to "$objects" and returns its uid (positions 0 and 1 are taken).
    quint64 object(const QByteArray& bytes)
    {
        objects.append(static_cast<quint64>(raw.add(bytes)));
        return static_cast<quint64>(objects.size() + 1);
    }
};

} // namespace

TEST(MBFileInfo, ReadsRecordsArchivedTheWayThePhoneDoes)
{
    FileRecord record;
    record.size = 5'368'709'120; // over 4 GiB
    record.protectionClass = 4;
    record.mode = 0100600;
    record.lastModified = 1'732'000'000;
    record.encryptionKey = QByteArray(44, '\x5A');
    const QByteArray blob = makeFileRecordBlob(record);
    const std::optional<MBFileInfo> info = MBFileInfo::parse(blob);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->size, 5'368'709'120);
    EXPECT_EQ(info->protectionClass, 4);
    EXPECT_EQ(info->mode, 0100600);
    EXPECT_EQ(info->mtime, QDateTime::fromSecsSinceEpoch(1'732'000'000, QTimeZone::utc()));
    EXPECT_EQ(info->encKey, QByteArray(44, '\x5A'));
    EXPECT_EQ(info, viaTree(blob));

    record.keyAsNSData = false; // a key given directly as data
    record.sizeByReference = true;
    const std::optional<MBFileInfo> direct = MBFileInfo::parse(makeFileRecordBlob(record));
    ASSERT_TRUE(direct);
    EXPECT_EQ(direct->encKey, QByteArray(44, '\x5A'));
    EXPECT_EQ(direct->size, 5'368'709'120);

    record.encryptionKey.reset();
    const std::optional<MBFileInfo> plain = MBFileInfo::parse(makeFileRecordBlob(record));
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->encKey.has_value());
}

TEST(MBFileInfo, ArchiveShapeDecidesWhetherThereIsAResult)
{
    {
        ArchiveBuilder archive;
        archive.field("Mode", archive.add(archive.raw.integer(0100644, 1)));
        EXPECT_FALSE(MBFileInfo::parse(archive.build({}, /*withTop=*/false)));
    }
    {
        ArchiveBuilder archive;
        EXPECT_FALSE(MBFileInfo::parse(archive.build(archive.raw.integer(1, 0)))); // root is not a uid
    }
    {
        ArchiveBuilder archive;
        EXPECT_FALSE(MBFileInfo::parse(archive.build(archive.raw.uid(9)))); // past "$objects"
    }
    {
        ArchiveBuilder archive;
        EXPECT_FALSE(MBFileInfo::parse(archive.build(archive.raw.uid(0)))); // "$null" is no record
    }
    {
        ArchiveBuilder archive; // a record without "Size" still gives the other fields
        archive.field("Mode", archive.add(archive.raw.integer(0100644, 1)));
        archive.field("ProtectionClass", archive.add(archive.raw.integer(3, 0)));
        const std::optional<MBFileInfo> info = MBFileInfo::parse(archive.build());
        ASSERT_TRUE(info);
        EXPECT_EQ(info->size, 0);
        EXPECT_EQ(info->mode, 0100644);
        EXPECT_EQ(info->protectionClass, 3);
    }
    EXPECT_FALSE(MBFileInfo::parse(QByteArray("bplist00")));
    EXPECT_FALSE(MBFileInfo::parse(makeFileRecordBlob({}).chopped(1)));
}

TEST(MBFileInfo, FieldValuesFollowTheirReferences)
{
    ArchiveBuilder archive;
    const quint64 sizeUid = archive.object(archive.raw.integer(1234, 1));
    archive.field("Size", archive.add(archive.raw.uid(sizeUid)));
    // A date object is not read, so the modification time stays absent.
    archive.field("LastModified", archive.add(QByteArray(1, char(0x33)) + QByteArray(8, '\x41')));
    // A negative uid ends that key with its default; a uid past "$objects" is not an integer.
    archive.field("Mode", archive.add(archive.raw.uid(~quint64(0), 8)));
    archive.field("ProtectionClass", archive.add(archive.raw.uid(200)));
    const quint64 keyUid = archive.object(archive.raw.dict({quint64(archive.add(archive.raw.ascii("NS.data")))},
                                                           {quint64(archive.add(archive.raw.data("KEY")))}));
    archive.field("EncryptionKey", archive.add(archive.raw.uid(keyUid)));
    const QByteArray blob = archive.build();
    const std::optional<MBFileInfo> info = MBFileInfo::parse(blob);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->size, 1234);
    EXPECT_FALSE(info->mtime.has_value());
    EXPECT_EQ(info->mode, 0);
    EXPECT_EQ(info->protectionClass, 0);
    EXPECT_EQ(info->encKey, QByteArray("KEY"));
    EXPECT_EQ(info, viaTree(blob));
}

TEST(MBFileInfo, DirectWalkAgreesWithTheTreeWalkOnDamagedBlobs)
{
    // The fast reading must give exactly what decoding the whole tree gives, whatever the damage.
    QRandomGenerator random(4242);
    QList<QByteArray> seeds;
    for (int i = 0; i < 8; ++i) {
        FileRecord record;
        record.size = static_cast<qint64>(random.generate64() >> 20);
        record.keyAsNSData = i % 2 == 0;
        record.sizeByReference = i % 3 == 0;
        if (i % 4 != 3)
            record.encryptionKey = QByteArray(40 + i, char('a' + i));
        seeds.append(makeFileRecordBlob(record));
    }
    int compared = 0;
    for (int round = 0; round < 20'000; ++round) {
        QByteArray blob = seeds[random.bounded(seeds.size())];
        const int flips = 1 + static_cast<int>(random.bounded(4));
        for (int i = 0; i < flips; ++i) {
            const auto at = static_cast<qsizetype>(random.bounded(static_cast<quint32>(blob.size())));
            blob[at] = random.bounded(3) == 0 ? static_cast<char>(random.bounded(256))
                                              : static_cast<char>(blob[at] ^ (1 << random.bounded(8)));
        }
        if (random.bounded(10) == 0)
            blob.truncate(static_cast<qsizetype>(random.bounded(static_cast<quint32>(blob.size()))));
        bool complete = true;
        const std::optional<MBFileInfo> tree = viaTree(blob, &complete);
        if (!complete)
            continue; // the tree was cut short by the decode budget; the direct walk is not
        ASSERT_EQ(MBFileInfo::parse(blob), tree) << "round " << round;
        ++compared;
    }
    EXPECT_GT(compared, 19'000);
}
