#include "engines/duplicates/DuplicateScanner.h"
#include "l10n/LanguageStore.h"
#include "support/BackupFixture.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTransform>

#include <gtest/gtest.h>

#include <bit>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

// A made-up photograph: a sky gradient and shapes placed by `seed`.
QImage scene(quint32 seed, QSize size = {1600, 1200})
{
    QImage image(size, QImage::Format_RGB32);
    QRandomGenerator random(seed);
    QPainter painter(&image);
    QLinearGradient sky(0, 0, size.width(), size.height());
    sky.setColorAt(0, QColor::fromHsv(int(random.bounded(360)), 120, 240));
    sky.setColorAt(1, QColor::fromHsv(int(random.bounded(360)), 200, 60));
    painter.fillRect(image.rect(), sky);
    painter.setPen(Qt::NoPen);
    for (int i = 0; i < 14; ++i) {
        painter.setBrush(QColor::fromHsv(int(random.bounded(360)), 180, int(random.bounded(40, 255))));
        const int w = int(random.bounded(size.width() / 10, size.width() / 3));
        const int h = int(random.bounded(size.height() / 10, size.height() / 3));
        const QRect box(int(random.bounded(size.width() - w)), int(random.bounded(size.height() - h)), w, h);
        i % 2 ? painter.drawEllipse(box) : painter.drawRect(box);
    }
    return image;
}

std::vector<DuplicateScanner::PhotoPrint> prints(const QList<quint64>& hashes, const QDateTime& when)
{
    std::vector<DuplicateScanner::PhotoPrint> result;
    for (quint64 hash : hashes)
        result.push_back({hash, when});
    return result;
}

quint64 flipped(quint64 hash, const QList<int>& bits)
{
    for (int bit : bits)
        hash ^= quint64(1) << bit;
    return hash;
}

} // namespace

TEST(SimilarPhotos, DistanceAndDateRules)
{
    const QDateTime noon(QDate(2024, 5, 1), QTime(12, 0), Qt::UTC);
    const quint64 base = 0x0123'4567'89AB'CDEFULL;
    using Print = DuplicateScanner::PhotoPrint;
    const Print a{base, noon};
    // 2 bits apart: similar whatever the dates, even unknown ones.
    EXPECT_TRUE(DuplicateScanner::areSimilar(a, {flipped(base, {1, 40}), noon.addYears(3)}));
    EXPECT_TRUE(DuplicateScanner::areSimilar(a, {flipped(base, {1, 40}), {}}));
    // 4 bits: within the hour in either direction, not at two hours, not at exactly one.
    const quint64 four = flipped(base, {1, 20, 40, 63});
    EXPECT_TRUE(DuplicateScanner::areSimilar(a, {four, noon.addSecs(600)}));
    EXPECT_TRUE(DuplicateScanner::areSimilar(a, {four, noon.addSecs(-3599)}));
    EXPECT_FALSE(DuplicateScanner::areSimilar(a, {four, noon.addSecs(3600)}));
    EXPECT_FALSE(DuplicateScanner::areSimilar(a, {four, noon.addSecs(-7200)}));
    EXPECT_FALSE(DuplicateScanner::areSimilar(a, {four, {}}));
    // 6 bits is the last distance; 7 never.
    EXPECT_TRUE(DuplicateScanner::areSimilar(a, {flipped(base, {0, 1, 2, 3, 4, 5}), noon}));
    EXPECT_FALSE(DuplicateScanner::areSimilar(a, {flipped(base, {0, 1, 2, 3, 4, 5, 6}), noon}));
}

TEST(SimilarPhotos, NearlyUniformHashesNeverMatchAndBurstsFormOneGroup)
{
    const QDateTime now(QDate(2024, 5, 1), QTime(12, 0), Qt::UTC);
    // Solid pictures hash to 0 (or all ones): equal, yet never grouped; the bounds are 6 and 58 bits.
    const quint64 fiveBits = 0b11111;
    const quint64 sixBits = 0b111111;
    const quint64 fiftyEight = ~quint64(0) >> 6;
    const quint64 fiftyNine = ~quint64(0) >> 5;
    EXPECT_TRUE(DuplicateScanner::linkSimilar(prints({0, 0, ~quint64(0), ~quint64(0)}, now)).isEmpty());
    EXPECT_TRUE(DuplicateScanner::linkSimilar(prints({fiveBits, fiveBits, fiftyNine, fiftyNine}, now)).isEmpty());
    EXPECT_EQ(DuplicateScanner::linkSimilar(prints({sixBits, fiftyEight, sixBits, fiftyEight}, now)),
              (QList<QList<qsizetype>>{{0, 2}, {1, 3}}));

    // A burst drifts: each shot is 4 bits from the next, the first and last 12 apart. Linked pairwise,
    // it is one group; a shot two hours later, 4 bits from the last, stays out; so does an unrelated one.
    const quint64 first = 0xF0F0'1234'5678'0F0FULL;
    const quint64 second = flipped(first, {2, 9, 33, 50});
    const quint64 third = flipped(second, {3, 10, 34, 51});
    const quint64 fourth = flipped(third, {4, 11, 35, 52});
    std::vector<DuplicateScanner::PhotoPrint> burst =
        prints({0x1357'9BDF'0246'8ACEULL, first, second, third, fourth, flipped(fourth, {5, 12, 36, 53})}, now);
    burst[2].taken = now.addSecs(qint64(50) * 60);
    burst[5].taken = now.addSecs(qint64(2) * 3600);
    EXPECT_EQ(DuplicateScanner::linkSimilar(burst), (QList<QList<qsizetype>>{{1, 2, 3, 4}}));
}

TEST(SimilarPhotos, TheIndexFindsWhatComparingEveryPairFinds)
{
    // Random hashes with planted neighbours at 0 to 8 bits, at random times: the indexed linking must
    // give the partition that weighing all n² pairs gives.
    QRandomGenerator random(20241124);
    const QDateTime start(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC);
    std::vector<DuplicateScanner::PhotoPrint> photos;
    for (int i = 0; i < 2500; ++i) {
        const quint64 hash = random.generate64();
        photos.push_back({hash, start.addSecs(random.bounded(3 * 3600))});
        if (i % 4 == 0) {
            quint64 near = hash;
            for (int flips = int(random.bounded(9)); flips > 0; --flips)
                near ^= quint64(1) << random.bounded(64);
            photos.push_back({near, start.addSecs(random.bounded(3 * 3600))});
        }
    }
    std::vector<size_t> parent(photos.size());
    for (size_t i = 0; i < parent.size(); ++i)
        parent[i] = i;
    const auto root = [&parent](size_t node) {
        while (parent[node] != node)
            node = parent[node];
        return node;
    };
    const auto usable = [](quint64 hash) {
        return std::popcount(hash) >= DuplicateScanner::minHashBits &&
               std::popcount(hash) <= DuplicateScanner::maxHashBits;
    };
    for (size_t i = 0; i < photos.size(); ++i) {
        for (size_t j = i + 1; j < photos.size(); ++j) {
            if (usable(photos[i].hash) && usable(photos[j].hash) &&
                DuplicateScanner::areSimilar(photos[i], photos[j])) {
                const size_t a = root(i);
                const size_t b = root(j);
                parent[std::max(a, b)] = std::min(a, b);
            }
        }
    }
    QMap<size_t, QList<qsizetype>> expected;
    for (size_t i = 0; i < photos.size(); ++i)
        expected[root(i)].append(qsizetype(i));
    QList<QList<qsizetype>> groups;
    for (const QList<qsizetype>& group : std::as_const(expected)) {
        if (group.size() > 1)
            groups.append(group);
    }
    ASSERT_GT(groups.size(), 200);
    EXPECT_EQ(DuplicateScanner::linkSimilar(photos), groups);
}

TEST(SimilarPhotos, VariantsOfOneSceneHashAlikeUnrelatedScenesDoNot)
{
    QTemporaryDir folder;
    const auto file = [&folder](const char* name) { return folder.filePath(QString::fromUtf8(name)); };
    const QImage original = scene(7);
    ASSERT_TRUE(original.save(file("original.jpg"), "JPEG", 92));
    ASSERT_TRUE(original.save(file("recompressed.jpg"), "JPEG", 40));
    ASSERT_TRUE(original.scaled(800, 600, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).save(file("small.png")));
    QImage touched = original;
    QPainter(&touched).fillRect(QRect(40, 40, 60, 60), Qt::yellow);
    ASSERT_TRUE(touched.save(file("touched.jpg"), "JPEG", 85));
    // Stored turned on its side, with the tag that sets it upright.
    ASSERT_TRUE(original.transformed(QTransform().rotate(-90)).save(file("sideways.jpg"), "JPEG", 90));
    ASSERT_TRUE(hasTool(QStringLiteral("exiv2")) && plantCameraMetadata(file("sideways.jpg"), 6));

    const std::optional<quint64> reference = DuplicateScanner::dHash(file("original.jpg"));
    ASSERT_TRUE(reference);
    for (const char* name : {"recompressed.jpg", "small.png", "touched.jpg", "sideways.jpg"}) {
        const std::optional<quint64> hash = DuplicateScanner::dHash(file(name));
        ASSERT_TRUE(hash) << name;
        EXPECT_LE(std::popcount(*hash ^ *reference), DuplicateScanner::alwaysSimilarDistance) << name;
    }
    for (quint32 seed : {8U, 9U, 10U}) {
        const QString other = folder.filePath(QStringLiteral("other-%1.jpg").arg(seed));
        ASSERT_TRUE(scene(seed).save(other, "JPEG", 90));
        EXPECT_GT(std::popcount(*DuplicateScanner::dHash(other) ^ *reference), 12) << seed;
    }
    // A picture that is no picture has no hash.
    writeFile(file("broken.jpg"), QByteArray("\xFF\xD8\xFF\xE0 not really", 16));
    EXPECT_FALSE(DuplicateScanner::dHash(file("broken.jpg")));
    EXPECT_FALSE(DuplicateScanner::dHash(file("missing.jpg")));
}

TEST(SimilarPhotos, AScanGroupsCopiesAndLookalikesApartAndReportsItsProgress)
{
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    QTemporaryDir folder;
    const auto file = [&folder](const QString& name) { return folder.filePath(name); };
    const QImage beach = scene(21);
    ASSERT_TRUE(beach.save(file(QStringLiteral("plage.jpg")), "JPEG", 90));
    ASSERT_TRUE(QDir().mkpath(file(QStringLiteral("copies"))));
    ASSERT_TRUE(QFile::copy(file(QStringLiteral("plage.jpg")), file(QStringLiteral("copies/plage.jpg"))));
    ASSERT_TRUE(beach.save(file(QStringLiteral("plage-retouche.jpg")), "JPEG", 50));
    ASSERT_TRUE(beach.scaled(640, 480).save(file(QStringLiteral("plage-petite.jpg")), "JPEG", 80));
    ASSERT_TRUE(scene(22).save(file(QStringLiteral("montagne.jpg")), "JPEG", 90));
    QImage black(400, 300, QImage::Format_RGB32);
    black.fill(Qt::black);
    ASSERT_TRUE(black.save(file(QStringLiteral("noir.png"))));
    QImage white = black;
    white.fill(Qt::white);
    ASSERT_TRUE(white.save(file(QStringLiteral("blanc.png"))));
    writeFile(file(QStringLiteral("notes.txt")), "pas une photo");

    QStringList texts;
    QList<double> fractions;
    const DupScan found = DuplicateScanner::scan(folder.path(), true, [&](const QString& text, double fraction) {
        texts.append(text);
        fractions.append(fraction);
    });
    // The copy is an identical file, and so takes no part in the photo phase; black and white never match.
    ASSERT_EQ(found.exact.size(), 1);
    EXPECT_EQ(found.exact[0].size(), 2);
    ASSERT_EQ(found.similar.size(), 1);
    QStringList similar;
    for (const DupFile& photo : found.similar[0])
        similar.append(QFileInfo(photo.path).fileName());
    similar.sort();
    EXPECT_EQ(similar, (QStringList{QStringLiteral("plage-petite.jpg"), QStringLiteral("plage-retouche.jpg")}));

    ASSERT_FALSE(texts.isEmpty());
    EXPECT_TRUE(texts.contains(QStringLiteral("Comparaison exacte : 2 sur 2")));
    EXPECT_EQ(texts.constLast(), QStringLiteral("Comparaison des photos : 5 sur 5"));
    EXPECT_TRUE(std::is_sorted(fractions.cbegin(), fractions.cend()));
    EXPECT_DOUBLE_EQ(fractions.constLast(), 1.0);
    const qsizetype photoPhase = texts.indexOf(QStringLiteral("Comparaison des photos : 0 sur 5"));
    ASSERT_GE(photoPhase, 0);
    EXPECT_DOUBLE_EQ(fractions[photoPhase], DuplicateScanner::photoPhaseStart);

    // Stopped at the first photo, the scan ends at once with no similar group.
    std::atomic<bool> cancel{false};
    const DupScan stopped = DuplicateScanner::scan(
        folder.path(), true,
        [&cancel](const QString& text, double) {
            if (text.startsWith(QStringLiteral("Comparaison des photos")))
                cancel = true;
        },
        &cancel);
    EXPECT_TRUE(stopped.similar.isEmpty());
}
