#include "engines/lighten/LightenError.h"
#include "engines/lighten/Lightener.h"
#include "engines/lighten/PhotoPasses.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

QSize sizeOf(const QString& path)
{
    QImageReader reader(path);
    reader.setAutoTransform(false); // what is stored: nothing may be left to turn
    return reader.size();
}

quint32 crc32(const QByteArray& bytes)
{
    quint32 crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    return ~crc;
}

QByteArray bigEndian(quint32 value)
{
    QByteArray bytes(4, 0);
    for (int i = 0; i < 4; ++i)
        bytes[i] = char(value >> (24 - 8 * i));
    return bytes;
}

LightenError::Kind failureOf(const std::function<void()>& work)
{
    try {
        work();
    } catch (const LightenError& error) {
        return error.kind();
    }
    ADD_FAILURE() << "no LightenError";
    return LightenError::Kind::Unsupported;
}

class PhotoLighten : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!hasTool(QStringLiteral("ffmpeg")) || !hasTool(QStringLiteral("exiv2")))
            GTEST_SKIP() << "needs ffmpeg and exiv2 to make and read photos";
    }
    QString path(const QString& name) const { return m_folder.filePath(name); }
    QString out() const { return m_folder.filePath(QStringLiteral("out")); }

    QTemporaryDir m_folder;
};

} // namespace

TEST_F(PhotoLighten, SizesAreCappedNeverEnlargedAndTurnedUpright)
{
    // 4032 × 3024 stored, "turn a quarter" in its Exif: a 1200 × 1600 portrait for WhatsApp.
    ASSERT_TRUE(writeDetailedJpeg(path(QStringLiteral("IMG_0001.JPG")), {4032, 3024}));
    ASSERT_TRUE(plantCameraMetadata(path(QStringLiteral("IMG_0001.JPG")), 6));
    const QString turned =
        Lightener::lightenImage(path(QStringLiteral("IMG_0001.JPG")), LightenTarget::WhatsApp, true, true, out());
    EXPECT_EQ(QFileInfo(turned).fileName(), QStringLiteral("IMG_0001-leger.jpg"));
    EXPECT_EQ(sizeOf(turned), QSize(1200, 1600));

    // Smaller than the target's side: kept at its size.
    ASSERT_TRUE(writeDetailedJpeg(path(QStringLiteral("small.jpg")), {1000, 800}));
    EXPECT_EQ(
        sizeOf(Lightener::lightenImage(path(QStringLiteral("small.jpg")), LightenTarget::WhatsApp, true, true, out())),
        QSize(1000, 800));

    // Each target's side.
    EXPECT_EQ(sizeOf(Lightener::lightenImage(path(QStringLiteral("IMG_0001.JPG")), LightenTarget::Messages, true, true,
                                             out())),
              QSize(1920, 2560));
    EXPECT_EQ(
        sizeOf(Lightener::lightenImage(path(QStringLiteral("IMG_0001.JPG")), LightenTarget::Free, true, true, out())),
        QSize(1536, 2048));

    // A transparent PNG becomes a JPEG on white, named "jpg".
    QImage clear(300, 200, QImage::Format_ARGB32);
    clear.fill(Qt::transparent);
    ASSERT_TRUE(clear.save(path(QStringLiteral("logo.PNG"))));
    const QString fromPng =
        Lightener::lightenImage(path(QStringLiteral("logo.PNG")), LightenTarget::Mail, true, true, out());
    EXPECT_EQ(QFileInfo(fromPng).fileName(), QStringLiteral("logo-leger.jpg"));
    const QImage white(fromPng);
    EXPECT_GT(qGray(white.pixel(150, 100)), 250);

    // Only finished files: no temporary name left.
    for (const QString& name : entries(out()))
        EXPECT_FALSE(name.startsWith(u'.')) << qPrintable(name);
}

TEST_F(PhotoLighten, MetadataIsCarriedAsAskedAndNothingElse)
{
    const QString source = path(QStringLiteral("IMG_0002.jpg"));
    ASSERT_TRUE(writeDetailedJpeg(source, {2000, 1500}));
    ASSERT_TRUE(plantCameraMetadata(source, 8));
    const QString icc = QStringLiteral("/usr/share/color/icc/ghostscript/a98.icc");
    const bool withProfile = QFile::exists(icc) && embedIccProfile(source, icc);

    const QString stripped = Lightener::lightenImage(source, LightenTarget::WhatsApp, true, true, out());
    const QString report = exifReport(stripped);
    EXPECT_TRUE(report.contains(QStringLiteral("Exif.Image.Make"))) << qPrintable(report);
    EXPECT_TRUE(report.contains(QStringLiteral("iPhone 15 Pro")));
    EXPECT_TRUE(report.contains(QStringLiteral("Exif.Photo.DateTimeOriginal")));
    EXPECT_FALSE(report.contains(QStringLiteral("GPS"))) << qPrintable(report);
    EXPECT_FALSE(report.contains(QStringLiteral("Orientation"))) << qPrintable(report);
    EXPECT_FALSE(report.contains(QStringLiteral("MakerNote")));
    EXPECT_FALSE(report.contains(QStringLiteral("Xmp.")));
    // The new size, turned: 8 is "a quarter the other way".
    EXPECT_TRUE(report.contains(QRegularExpression(QStringLiteral("PixelXDimension\\s+Long\\s+1\\s+1200"))));
    EXPECT_TRUE(report.contains(QRegularExpression(QStringLiteral("PixelYDimension\\s+Long\\s+1\\s+1600"))));

    const QString located = Lightener::lightenImage(source, LightenTarget::WhatsApp, false, true, out());
    EXPECT_EQ(QFileInfo(located).fileName(), QStringLiteral("IMG_0002-leger-2.jpg"));
    EXPECT_TRUE(exifReport(located).contains(QStringLiteral("48deg 51' 24\""))) << qPrintable(exifReport(located));

    if (withProfile) {
        EXPECT_EQ(embeddedIccProfile(stripped), embeddedIccProfile(source));
        EXPECT_FALSE(embeddedIccProfile(stripped).isEmpty());
    }

    // A photo without any metadata gets none, and does not fail for it.
    QImage bare(640, 480, QImage::Format_RGB32);
    bare.fill(Qt::darkGreen);
    ASSERT_TRUE(bare.save(path(QStringLiteral("bare.jpg"))));
    EXPECT_FALSE(
        exifReport(Lightener::lightenImage(path(QStringLiteral("bare.jpg")), LightenTarget::Mail, false, true, out()))
            .contains(QStringLiteral("Exif.")));
}

TEST_F(PhotoLighten, HeicStaysHeicOnlyWhenAskedWithItsMetadata)
{
    if (!hasTool(QStringLiteral("heif-enc")))
        GTEST_SKIP() << "needs heif-enc";
    const QString jpeg = path(QStringLiteral("source.jpg"));
    ASSERT_TRUE(writeDetailedJpeg(jpeg, {1800, 1201}));
    ASSERT_TRUE(plantCameraMetadata(jpeg, 1));
    const QString heic = path(QStringLiteral("x.heic"));
    ASSERT_TRUE(runCommand(QStringLiteral("heif-enc"),
                           {QStringLiteral("-q"), QStringLiteral("60"), QStringLiteral("-o"), heic, jpeg}));

    const QString converted = Lightener::lightenImage(heic, LightenTarget::Mail, true, true, out());
    EXPECT_EQ(QFileInfo(converted).fileName(), QStringLiteral("x-leger.jpg"));
    EXPECT_EQ(sizeOf(converted), QSize(1800, 1200)); // heif-enc keeps even sides

    // The HEIC's Exif block, read through libheif, reaches the JPEG.
    EXPECT_TRUE(exifReport(converted).contains(QStringLiteral("iPhone 15 Pro"))) << qPrintable(exifReport(converted));

    // 1600 × 1067 for WhatsApp, made even for HEVC: one row less, and the Exif says so.
    const QString kept = Lightener::lightenImage(heic, LightenTarget::WhatsApp, false, false, out());
    EXPECT_EQ(QFileInfo(kept).fileName(), QStringLiteral("x-leger.heic"));
    const QString report = exifReport(kept);
    EXPECT_TRUE(report.contains(QStringLiteral("iPhone 15 Pro"))) << qPrintable(report);
    EXPECT_TRUE(report.contains(QStringLiteral("GPSLatitude"))) << qPrintable(report);
    EXPECT_TRUE(report.contains(QRegularExpression(QStringLiteral("PixelYDimension\\s+Long\\s+1\\s+1066"))));
    QImage decoded;
    // Read back by libheif's own tool, an implementation that is not ours.
    ASSERT_TRUE(runCommand(QStringLiteral("heif-convert"), {kept, path(QStringLiteral("back.png"))}));
    decoded.load(path(QStringLiteral("back.png")));
    EXPECT_EQ(decoded.size(), QSize(1600, 1066));

    // Names already taken are numbered, never replaced.
    Lightener::lightenImage(heic, LightenTarget::Mail, true, true, out());
    Lightener::lightenImage(heic, LightenTarget::Mail, true, true, out());
    EXPECT_TRUE(QFile::exists(QDir(out()).filePath(QStringLiteral("x-leger-2.jpg"))));
    EXPECT_TRUE(QFile::exists(QDir(out()).filePath(QStringLiteral("x-leger-3.jpg"))));
    EXPECT_EQ(Lightener::uniqueUrl(out(), QStringLiteral("x-leger.jpg")),
              QDir(out()).filePath(QStringLiteral("x-leger-4.jpg")));
}

TEST(PhotoPasses, QualityThenSizeStepsUntilTheBudgetOrTheFloor)
{
    QImage picture(1600, 1200, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    // An encoder whose size follows the pixels and the quality, as JPEG's roughly does.
    const auto encode = [](const QImage& image, double quality) {
        return QByteArray(qsizetype(double(image.width()) * image.height() * quality), 'x');
    };

    // Never within reach: sixteen encodings, the qualities and sizes in their order, the last kept.
    QList<lighten::PhotoPass> passes;
    const QByteArray last = lighten::encodeWithinBudget(picture, 1000, encode, &passes);
    ASSERT_EQ(passes.size(), 16);
    const double firstSize[] = {0.85, 0.75, 0.65, 0.55, 0.45};
    const double otherSizes[] = {0.8, 0.7, 0.6, 0.5, 0.4};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(passes[i].side, 1600);
        EXPECT_NEAR(passes[i].quality, firstSize[i], 1e-9);
        EXPECT_EQ(passes[5 + i].side, 1280);
        EXPECT_NEAR(passes[5 + i].quality, otherSizes[i], 1e-9);
        EXPECT_EQ(passes[10 + i].side, 1024);
        EXPECT_NEAR(passes[10 + i].quality, otherSizes[i], 1e-9);
    }
    EXPECT_EQ(passes[15], (lighten::PhotoPass{819, 0.8}));
    EXPECT_EQ(last.size(), qsizetype(819.0 * 614 * 0.8));

    // Stops at the first encoding that fits, the boundary included.
    passes.clear();
    const qint64 atQuality65 = qint64(1600.0 * 1200 * 0.65);
    EXPECT_EQ(lighten::encodeWithinBudget(picture, atQuality65, encode, &passes).size(), atQuality65);
    EXPECT_EQ(passes.size(), 3);

    // A small picture stops when the next size would drop under 600 pixels, over budget.
    passes.clear();
    lighten::encodeWithinBudget(picture.scaled(700, 525), 10, encode, &passes);
    EXPECT_EQ(passes.size(), 5);

    // No budget: one encoding at 0.85, whatever its size.
    passes.clear();
    lighten::encodeWithinBudget(picture, std::nullopt, encode, &passes);
    EXPECT_EQ(passes, (QList<lighten::PhotoPass>{{1600, 0.85}}));
}

TEST_F(PhotoLighten, BrokenAndHostilePicturesFailCleanly)
{
    // A PNG that declares 50,000 × 50,000 pixels in a few hundred bytes.
    QByteArray png("\x89PNG\r\n\x1a\n", 8);
    const auto chunk = [&png](const QByteArray& type, const QByteArray& data) {
        png += bigEndian(quint32(data.size())) + type + data + bigEndian(crc32(type + data));
    };
    chunk("IHDR", QByteArray::fromHex("0000c3500000c3500802000000"));
    chunk("IDAT", QByteArray(64, 0));
    chunk("IEND", {});
    const auto write = [this](const QString& name, const QByteArray& bytes) {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path(name);
    };
    const QString bomb = write(QStringLiteral("bomb.png"), png);
    EXPECT_EQ(failureOf([&] { Lightener::lightenImage(bomb, LightenTarget::WhatsApp, true, true, out()); }),
              LightenError::Kind::TooLarge);

    ASSERT_TRUE(writeDetailedJpeg(path(QStringLiteral("whole.jpg")), {1200, 900}));
    QFile whole(path(QStringLiteral("whole.jpg")));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QByteArray jpeg = whole.readAll();
    const QString header = write(QStringLiteral("header.jpg"), jpeg.left(300));
    const QString garbage = write(QStringLiteral("garbage.jpg"), QByteArray(5000, '\x42'));
    const QString empty = write(QStringLiteral("empty.heic"), {});
    QByteArray fakeHeif = QByteArray::fromHex("0000001c6674797068656963") + QByteArray(200, '\x07');
    const QString heif = write(QStringLiteral("cut.heic"), fakeHeif);
    for (const QString& broken : {header, garbage, empty, heif}) {
        EXPECT_EQ(failureOf([&] { Lightener::lightenImage(broken, LightenTarget::WhatsApp, true, true, out()); }),
                  LightenError::Kind::Unreadable)
            << qPrintable(broken);
    }
    // Cut in the middle: libjpeg fills the rest with grey; a picture comes out or a clean failure, never
    // a crash nor a partial file.
    const QString half = write(QStringLiteral("half.jpg"), jpeg.left(jpeg.size() / 2));
    try {
        const QString output = Lightener::lightenImage(half, LightenTarget::WhatsApp, true, true, out());
        EXPECT_FALSE(QImage(output).isNull());
    } catch (const LightenError& error) {
        EXPECT_EQ(error.kind(), LightenError::Kind::Unreadable);
    }

    // A missing source is the system's reason, not ours.
    EXPECT_THROW(Lightener::lightenImage(path(QStringLiteral("gone.jpg")), LightenTarget::WhatsApp, true, true, out()),
                 FileError);
    const QStringList left = entries(out());
    EXPECT_TRUE(std::all_of(left.cbegin(), left.cend(), [](const QString& name) { return name.startsWith(u'h'); }))
        << qPrintable(left.join(u' '));
}

TEST_F(PhotoLighten, PhotosAreLightenedSideBySide)
{
    // The page lightens photos on several threads at once: exiv2, libheif and Qt's readers share
    // nothing that breaks.
    ASSERT_TRUE(writeDetailedJpeg(path(QStringLiteral("a.jpg")), {2400, 1800}));
    ASSERT_TRUE(plantCameraMetadata(path(QStringLiteral("a.jpg")), 6));
    std::vector<std::thread> workers;
    std::atomic<int> done{0};
    for (int i = 0; i < 4; ++i) {
        workers.emplace_back([&] {
            for (int n = 0; n < 3; ++n) {
                const QString output =
                    Lightener::lightenImage(path(QStringLiteral("a.jpg")), LightenTarget::WhatsApp, true, true, out());
                if (sizeOf(output) == QSize(1200, 1600))
                    ++done;
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(done, 12);
    EXPECT_EQ(entries(out()).size(), 12);
}
