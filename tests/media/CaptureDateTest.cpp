#include "media/CaptureDate.h"
#include "support/MediaFixtures.h"

#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QByteArray box(const char* type, const QByteArray& body)
{
    QByteArray out(4, '\0');
    qToBigEndian<quint32>(quint32(8 + body.size()), out.data());
    return out + QByteArray(type, 4) + body;
}

// A movie header of version 0 (32-bit times) or 1 (64-bit), its creation time in QuickTime seconds.
QByteArray movieHeader(int version, quint64 created)
{
    QByteArray body(1, char(version));
    body += QByteArray(3, '\0');
    QByteArray time(version == 1 ? 8 : 4, '\0');
    version == 1 ? qToBigEndian<quint64>(created, time.data()) : qToBigEndian<quint32>(quint32(created), time.data());
    return box("mvhd", body + time + time + QByteArray(80, '\0'));
}

QString write(const QTemporaryDir& folder, const char* name, const QByteArray& bytes)
{
    const QString path = folder.filePath(QString::fromLatin1(name));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return {};
    return path;
}

constexpr quint64 quickTime2023 = 2082844800ULL + 1688212800ULL; // 2023-07-01 12:00:00 UTC

} // namespace

TEST(CaptureDate, MovieHeadersAreReadWhereverTheyLieAndBrokenOnesGiveNothing)
{
    QTemporaryDir folder;
    const QDateTime expected = QDateTime::fromSecsSinceEpoch(1688212800, Qt::UTC);
    const QByteArray ftyp = box("ftyp", QByteArray("qt  \0\0\0\0qt  ", 12));
    const QByteArray media = box("mdat", QByteArray(4096, 'x'));

    // After the media or before it; version 0 and 1; a 64-bit box size.
    EXPECT_EQ(movieCreationDate(write(folder, "a.mov", ftyp + media + box("moov", movieHeader(0, quickTime2023)))),
              expected);
    EXPECT_EQ(movieCreationDate(
                  write(folder, "b.mp4", ftyp + box("moov", box("free", "x") + movieHeader(1, quickTime2023)) + media)),
              expected);
    QByteArray large(4, '\0');
    qToBigEndian<quint32>(1, large.data());
    QByteArray size64(8, '\0');
    qToBigEndian<quint64>(16 + 10, size64.data());
    const QByteArray wide = large + "wide" + size64 + QByteArray(10, 'w');
    EXPECT_EQ(movieCreationDate(write(folder, "c.mov", ftyp + wide + box("moov", movieHeader(0, quickTime2023)))),
              expected);

    // Unset, missing, cut, lying about sizes: no date and no crash.
    EXPECT_FALSE(movieCreationDate(write(folder, "zero.mov", ftyp + box("moov", movieHeader(0, 0)))).isValid());
    EXPECT_FALSE(movieCreationDate(write(folder, "nomoov.mov", ftyp + media)).isValid());
    const QByteArray whole = ftyp + box("moov", movieHeader(1, quickTime2023));
    EXPECT_FALSE(movieCreationDate(write(folder, "cut.mov", whole.left(whole.size() - 90))).isValid());
    QByteArray liar = box("moov", movieHeader(0, quickTime2023));
    qToBigEndian<quint32>(3, liar.data()); // smaller than its own header
    EXPECT_FALSE(movieCreationDate(write(folder, "liar.mov", ftyp + liar)).isValid());
    QByteArray huge = box("moov", movieHeader(1, ~quint64(0)));
    EXPECT_FALSE(movieCreationDate(write(folder, "huge.mov", ftyp + huge)).isValid());
    EXPECT_FALSE(movieCreationDate(write(folder, "empty.mov", {})).isValid());
    EXPECT_FALSE(movieCreationDate(folder.filePath(QStringLiteral("absent.mov"))).isValid());
    // Millions of tiny boxes are not all walked.
    QByteArray many;
    for (int i = 0; i < 5000; ++i)
        many += box("free", {});
    EXPECT_FALSE(
        movieCreationDate(write(folder, "many.mov", many + box("moov", movieHeader(0, quickTime2023)))).isValid());
}

TEST(CaptureDate, WhatFfmpegAndExiv2RecordIsFound)
{
    QTemporaryDir folder;
    if (hasTool(QStringLiteral("ffmpeg"))) {
        const QString movie = folder.filePath(QStringLiteral("clip.MOV"));
        ASSERT_TRUE(
            runCommand(QStringLiteral("ffmpeg"),
                       {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                        QStringLiteral("-i"), QStringLiteral("color=c=blue:s=64x48:d=0.2"), QStringLiteral("-metadata"),
                        QStringLiteral("creation_time=2022-03-04T05:06:07Z"), QStringLiteral("-y"), movie}));
        EXPECT_EQ(recordedCaptureDate(movie), QDateTime(QDate(2022, 3, 4), QTime(5, 6, 7), Qt::UTC));
    }
    if (hasTool(QStringLiteral("exiv2"))) {
        const QString photo = folder.filePath(QStringLiteral("IMG_0001.JPG"));
        QImage image(32, 32, QImage::Format_RGB32);
        image.fill(Qt::red);
        ASSERT_TRUE(image.save(photo, "JPEG"));
        EXPECT_FALSE(recordedCaptureDate(photo).isValid());
        ASSERT_TRUE(plantCameraMetadata(photo, 1));
        EXPECT_EQ(recordedCaptureDate(photo), QDateTime(QDate(2024, 5, 1), QTime(10, 11, 12)));
    }
    // A name that is neither, and a photo that is not one.
    EXPECT_FALSE(recordedCaptureDate(write(folder, "notes.txt", "2024:05:01 10:11:12")).isValid());
    EXPECT_FALSE(recordedCaptureDate(write(folder, "fake.HEIC", QByteArray(64, 'h'))).isValid());
    EXPECT_FALSE(recordedCaptureDate(write(folder, "fake.jpg", QByteArray(64, 'j'))).isValid());
}
