#include "media/PhotoEncoder.h"
#include "support/MediaFixtures.h"

#include <QImage>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

TEST(PhotoMetadata, TheCaptureMomentComesFromExifAtItsRecordedOffset)
{
    if (!hasTool(QStringLiteral("exiv2")))
        GTEST_SKIP() << "exiv2 is not installed";
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("photo.jpg"));
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    ASSERT_TRUE(image.save(path, "JPEG"));
    EXPECT_FALSE(PhotoMetadata::fromFile(path).takenAt().isValid());

    // Without an offset, the camera's clock is read as local time.
    ASSERT_TRUE(plantCameraMetadata(path, 1));
    EXPECT_EQ(PhotoMetadata::fromFile(path).takenAt(), QDateTime(QDate(2024, 5, 1), QTime(10, 11, 12)));

    ASSERT_TRUE(runCommand(QStringLiteral("exiv2"),
                           {QStringLiteral("-M"), QStringLiteral("set Exif.Photo.OffsetTimeOriginal +02:00"), path}));
    EXPECT_EQ(PhotoMetadata::fromFile(path).takenAt().toUTC(), QDateTime(QDate(2024, 5, 1), QTime(8, 11, 12), Qt::UTC));

    // Cameras whose clock was never set write zeros; a garbled offset is ignored, not guessed at.
    ASSERT_TRUE(runCommand(QStringLiteral("exiv2"),
                           {QStringLiteral("-M"), QStringLiteral("set Exif.Photo.OffsetTimeOriginal +2h"), path}));
    EXPECT_EQ(PhotoMetadata::fromFile(path).takenAt(), QDateTime(QDate(2024, 5, 1), QTime(10, 11, 12)));
    ASSERT_TRUE(runCommand(
        QStringLiteral("exiv2"),
        {QStringLiteral("-M"), QStringLiteral("set Exif.Photo.DateTimeOriginal 0000:00:00 00:00:00"), path}));
    EXPECT_FALSE(PhotoMetadata::fromFile(path).takenAt().isValid());
}
