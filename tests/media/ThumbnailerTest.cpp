#include "media/Thumbnailer.h"

#include "support/SampleBackup.h"

#include <QBuffer>
#include <QFile>
#include <QImageWriter>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QByteArray encode(const QImage& image, const char* format, QImageIOHandler::Transformations transformation = {})
{
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    writer.setTransformation(transformation);
    EXPECT_TRUE(writer.write(image)) << writer.errorString().toStdString();
    return data;
}

QByteArray sampleOf(const QString& suffix)
{
    for (const SampleFile& file : cameraRollHeicAndMov()) {
        if (file.path.endsWith(suffix, Qt::CaseInsensitive))
            return file.contents;
    }
    return {};
}

TEST(Thumbnailer, PhotosAreFittedAndTurnedUpright)
{
    QImage wide(3000, 1000, QImage::Format_RGB32);
    wide.fill(Qt::darkCyan);
    const QImage jpeg = Thumbnailer::image(encode(wide, "jpeg"), 256);
    EXPECT_EQ(jpeg.size(), QSize(256, 85));

    // The file says "turn me a quarter": the picture comes out tall.
    const QImage turned = Thumbnailer::image(encode(wide, "jpeg", QImageIOHandler::TransformationRotate90), 256);
    EXPECT_EQ(turned.size(), QSize(85, 256));

    // Small pictures are not enlarged; PNG goes through the same door.
    QImage small(40, 30, QImage::Format_ARGB32);
    small.fill(Qt::red);
    EXPECT_EQ(Thumbnailer::image(encode(small, "png"), 256).size(), QSize(40, 30));
}

TEST(Thumbnailer, HeicThroughLibheifWithItsOwnThumbnailWhenLargeEnough)
{
    const QByteArray heic = sampleOf(QStringLiteral(".HEIC"));
    ASSERT_TRUE(Thumbnailer::isHeif(heic));
    const QImage full = Thumbnailer::image(heic, 256);
    ASSERT_FALSE(full.isNull());
    EXPECT_EQ(std::max(full.width(), full.height()), 256);

    // A phone-style file with a 64-pixel picture beside the main one.
    QTemporaryDir dir;
    QImage source(640, 480, QImage::Format_RGB32);
    source.fill(Qt::darkYellow);
    const QString png = dir.filePath(QStringLiteral("in.png"));
    const QString out = dir.filePath(QStringLiteral("out.heic"));
    ASSERT_TRUE(source.save(png));
    QProcess encoder;
    encoder.start(QStringLiteral("heif-enc"),
                  {QStringLiteral("-t"), QStringLiteral("64"), QStringLiteral("-o"), out, png});
    ASSERT_TRUE(encoder.waitForFinished(60'000) && encoder.exitCode() == 0) << "heif-enc (libheif-examples) is needed";
    QFile file(out);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray withThumbnail = file.readAll();
    EXPECT_EQ(Thumbnailer::image(withThumbnail, 100).width(), 64);  // its thumbnail is big enough
    EXPECT_EQ(Thumbnailer::image(withThumbnail, 256).width(), 256); // too small: the main picture
}

TEST(Thumbnailer, BrokenInputGivesNothing)
{
    const QByteArray heic = sampleOf(QStringLiteral(".HEIC"));
    QImage picture(800, 600, QImage::Format_RGB32);
    picture.fill(Qt::blue);
    const QByteArray jpeg = encode(picture, "jpeg");
    const QList<QByteArray> broken{QByteArray(), QByteArray("not a picture"), heic.left(heic.size() / 3), heic.left(40),
                                   QByteArray("\0\0\0\x18"
                                              "ftypheic",
                                              12) +
                                       QByteArray(100, 'z')};
    for (const QByteArray& data : broken) {
        EXPECT_TRUE(Thumbnailer::image(data, 256).isNull()) << data.size();
    }
    // A cut JPEG still shows what arrived, like every image viewer; it must not crash.
    Thumbnailer::image(jpeg.left(jpeg.size() / 2), 256);
    EXPECT_TRUE(Thumbnailer::image(jpeg, 0).isNull());
}

TEST(Thumbnailer, VideoFrameThroughFfmpeg)
{
    ASSERT_FALSE(Thumbnailer::ffmpegPath().isEmpty()) << "ffmpeg is needed";
    QTemporaryDir dir;
    const QString movie = dir.filePath(QStringLiteral("IMG_0002.MOV"));
    QFile file(movie);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(sampleOf(QStringLiteral(".MOV")));
    file.close();
    const QImage frame = Thumbnailer::videoFrame(movie, 128);
    ASSERT_FALSE(frame.isNull());
    EXPECT_EQ(std::max(frame.width(), frame.height()), 128);

    const QString garbage = dir.filePath(QStringLiteral("garbage.mov"));
    QFile bad(garbage);
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly));
    bad.write(QByteArray(5000, 'x'));
    bad.close();
    EXPECT_TRUE(Thumbnailer::videoFrame(garbage, 128).isNull());
    EXPECT_TRUE(Thumbnailer::videoFrame(dir.filePath(QStringLiteral("absent.mov")), 128).isNull());
}

} // namespace
