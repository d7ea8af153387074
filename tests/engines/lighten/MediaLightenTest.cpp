#include "engines/lighten/LightenError.h"
#include "engines/lighten/Lightener.h"
#include "support/MediaFixtures.h"
#include "support/PdfTools.h"

#include <QDir>
#include <QFile>
#include <QPainter>
#include <QPdfWriter>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

// The top-level boxes of an ISO media file, in order.
QList<QByteArray> topLevelBoxes(const QByteArray& file)
{
    QList<QByteArray> boxes;
    qsizetype at = 0;
    while (at + 8 <= file.size()) {
        quint64 size = 0;
        for (int i = 0; i < 4; ++i)
            size = size << 8 | quint8(file[at + i]);
        boxes.append(file.mid(at + 4, 4));
        if (size == 1 && at + 16 <= file.size()) {
            size = 0;
            for (int i = 0; i < 8; ++i)
                size = size << 8 | quint8(file[at + 8 + i]);
        }
        if (size < 8)
            break;
        at += qsizetype(size);
    }
    return boxes;
}

class VideoLighten : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!hasTool(QStringLiteral("ffmpeg")) || !hasTool(QStringLiteral("ffprobe")))
            GTEST_SKIP() << "needs ffmpeg and ffprobe";
    }
    QString path(const QString& name) const { return m_folder.filePath(name); }
    QString out() const { return m_folder.filePath(QStringLiteral("out")); }
    // A clip from ffmpeg's test sources; `extra` are output options.
    bool makeClip(const QString& name, QSize size, double seconds, const QStringList& extra, bool sound = true) const
    {
        QStringList arguments{QStringLiteral("-v"),
                              QStringLiteral("error"),
                              QStringLiteral("-y"),
                              QStringLiteral("-f"),
                              QStringLiteral("lavfi"),
                              QStringLiteral("-i"),
                              QStringLiteral("testsrc2=size=%1x%2:rate=30").arg(size.width()).arg(size.height())};
        if (sound)
            arguments << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
                      << QStringLiteral("sine=frequency=440");
        arguments << QStringLiteral("-t") << QString::number(seconds) << extra << path(name);
        return runCommand(QStringLiteral("ffmpeg"), arguments);
    }

    QTemporaryDir m_folder;
};

} // namespace

TEST_F(VideoLighten, FittedIntoThePresetWithItsSoundAndReadyToStream)
{
    ASSERT_TRUE(
        makeClip(QStringLiteral("clip.mov"), {1920, 1080}, 3,
                 {QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-c:a"), QStringLiteral("aac"),
                  QStringLiteral("-metadata"), QStringLiteral("location=+48.8566+002.3522/"),
                  QStringLiteral("-metadata"), QStringLiteral("creation_time=2024-05-01T10:00:00Z")}));
    QList<double> fractions;
    const QString stripped = Lightener::lightenVideo(path(QStringLiteral("clip.mov")), LightenTarget::WhatsApp, true,
                                                     out(), [&](double fraction) { fractions.append(fraction); });
    EXPECT_EQ(QFileInfo(stripped).fileName(), QStringLiteral("clip-leger.mp4"));
    const QString streams = probe(stripped, QStringLiteral("stream=codec_name,width,height,pix_fmt"));
    EXPECT_TRUE(streams.contains(QStringLiteral("codec_name=h264"))) << qPrintable(streams);
    EXPECT_TRUE(streams.contains(QStringLiteral("width=1280\nheight=720"))) << qPrintable(streams);
    EXPECT_TRUE(streams.contains(QStringLiteral("pix_fmt=yuv420p")));
    EXPECT_TRUE(streams.contains(QStringLiteral("codec_name=aac")));
    // The index before the data: a phone plays it while it downloads.
    const QList<QByteArray> boxes = topLevelBoxes(contents(stripped));
    ASSERT_TRUE(boxes.contains("moov") && boxes.contains("mdat"));
    EXPECT_LT(boxes.indexOf("moov"), boxes.indexOf("mdat"));
    // Progress rises to the end.
    ASSERT_FALSE(fractions.isEmpty());
    EXPECT_TRUE(std::is_sorted(fractions.cbegin(), fractions.cend()));
    EXPECT_GT(fractions.last(), 0.9);
    EXPECT_LE(fractions.last(), 1.0);

    // Stripped: no position, no date, in any tag.
    const QString strippedTags = probe(stripped, QStringLiteral("format_tags:stream_tags"));
    EXPECT_FALSE(strippedTags.contains(QStringLiteral("location"))) << qPrintable(strippedTags);
    EXPECT_FALSE(strippedTags.contains(QStringLiteral("2024-05-01"))) << qPrintable(strippedTags);
    EXPECT_FALSE(contents(stripped).contains("+48.8566"));

    const QString kept = Lightener::lightenVideo(path(QStringLiteral("clip.mov")), LightenTarget::Free, false, out());
    EXPECT_EQ(QFileInfo(kept).fileName(), QStringLiteral("clip-leger-2.mp4"));
    const QString keptTags = probe(kept, QStringLiteral("format_tags"));
    EXPECT_TRUE(keptTags.contains(QStringLiteral("+48.8566+002.3522/"))) << qPrintable(keptTags);
    EXPECT_TRUE(keptTags.contains(QStringLiteral("creation_time=2024-05-01"))) << qPrintable(keptTags);
    // Dated as its source.
    EXPECT_EQ(QFileInfo(kept).lastModified().toSecsSinceEpoch(),
              QFileInfo(path(QStringLiteral("clip.mov"))).lastModified().toSecsSinceEpoch());
    EXPECT_EQ(entries(out()), (QStringList{QStringLiteral("clip-leger-2.mp4"), QStringLiteral("clip-leger.mp4")}));
}

TEST_F(VideoLighten, PortraitSmallAndHdrVideosComeOutRight)
{
    // Filmed upright: stored 1920 × 1080 with a quarter turn in its track header.
    ASSERT_TRUE(makeClip(
        QStringLiteral("wide.mp4"), {1920, 1080}, 1,
        {QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast")},
        false));
    ASSERT_TRUE(write(path(QStringLiteral("upright.mp4")),
                      withDisplayRotation(contents(path(QStringLiteral("wide.mp4"))), 90)));
    ASSERT_TRUE(probe(path(QStringLiteral("upright.mp4")), QStringLiteral("stream_side_data=rotation"))
                    .contains(QStringLiteral("rotation=-90")));
    const QString upright =
        Lightener::lightenVideo(path(QStringLiteral("upright.mp4")), LightenTarget::WhatsApp, true, out());
    const QString turned = probe(upright, QStringLiteral("stream=width,height:stream_side_data=rotation"));
    EXPECT_TRUE(turned.contains(QStringLiteral("width=720\nheight=1280"))) << qPrintable(turned);
    EXPECT_FALSE(turned.contains(QStringLiteral("rotation"))) << qPrintable(turned);

    // Smaller than every preset: never enlarged; odd sides made even.
    ASSERT_TRUE(makeClip(
        QStringLiteral("tiny.mp4"), {321, 241}, 1,
        {QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv444p")}));
    EXPECT_TRUE(probe(Lightener::lightenVideo(path(QStringLiteral("tiny.mp4")), LightenTarget::Mail, true, out()),
                      QStringLiteral("stream=width,height"))
                    .contains(QStringLiteral("width=320\nheight=240")));

    // iPhone HDR: 10-bit HEVC in HLG comes out as 8-bit H.264 in BT.709.
    ASSERT_TRUE(makeClip(QStringLiteral("hdr.mov"), {1280, 720}, 1,
                         {QStringLiteral("-c:v"), QStringLiteral("libx265"), QStringLiteral("-x265-params"),
                          QStringLiteral("log-level=error"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p10le"),
                          QStringLiteral("-color_primaries"), QStringLiteral("bt2020"), QStringLiteral("-color_trc"),
                          QStringLiteral("arib-std-b67"), QStringLiteral("-colorspace"), QStringLiteral("bt2020nc"),
                          QStringLiteral("-tag:v"), QStringLiteral("hvc1")},
                         false));
    const QString mapped =
        probe(Lightener::lightenVideo(path(QStringLiteral("hdr.mov")), LightenTarget::Free, true, out()),
              QStringLiteral("stream=codec_name,pix_fmt,color_transfer,color_primaries"));
    EXPECT_TRUE(mapped.contains(QStringLiteral("codec_name=h264"))) << qPrintable(mapped);
    EXPECT_TRUE(mapped.contains(QStringLiteral("pix_fmt=yuv420p\n"))) << qPrintable(mapped);
    EXPECT_TRUE(mapped.contains(QStringLiteral("color_transfer=bt709"))) << qPrintable(mapped);
    EXPECT_TRUE(mapped.contains(QStringLiteral("color_primaries=bt709"))) << qPrintable(mapped);
}

TEST_F(VideoLighten, WhatIsNoVideoFailsAndACancelLeavesNothing)
{
    ASSERT_TRUE(write(path(QStringLiteral("notes.mov")), "not a video at all\n"));
    // Sound only, under a video's name.
    ASSERT_TRUE(
        runCommand(QStringLiteral("ffmpeg"),
                   {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                    QStringLiteral("-i"), QStringLiteral("sine"), QStringLiteral("-t"), QStringLiteral("1"),
                    QStringLiteral("-c:a"), QStringLiteral("aac"), path(QStringLiteral("sound.mp4"))}));
    ASSERT_TRUE(makeClip(QStringLiteral("whole.mp4"), {640, 480}, 2, {}));
    const QByteArray whole = contents(path(QStringLiteral("whole.mp4")));
    ASSERT_TRUE(write(path(QStringLiteral("cut.mp4")), whole.left(whole.size() / 3)));
    for (const QString& name : {QStringLiteral("notes.mov"), QStringLiteral("sound.mp4"), QStringLiteral("cut.mp4")}) {
        try {
            Lightener::lightenVideo(path(name), LightenTarget::WhatsApp, true, out());
            ADD_FAILURE() << qPrintable(name) << " was lightened";
        } catch (const LightenError& error) {
            EXPECT_EQ(error.kind(), LightenError::Kind::VideoFailed) << qPrintable(name);
        }
    }

    ASSERT_TRUE(makeClip(QStringLiteral("long.mp4"), {1280, 720}, 20, {}));
    std::atomic<bool> cancel{false};
    try {
        Lightener::lightenVideo(
            path(QStringLiteral("long.mp4")), LightenTarget::Telegram, true, out(),
            [&](double fraction) {
                if (fraction > 0.05)
                    cancel = true;
            },
            &cancel);
        ADD_FAILURE() << "not cancelled";
    } catch (const LightenError& error) {
        EXPECT_EQ(error.kind(), LightenError::Kind::Cancelled);
    }
    EXPECT_EQ(entries(out()), QStringList()); // neither a result nor a temporary file
}

namespace {

class PdfLighten : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!hasTool(QStringLiteral("pdfinfo")) || !hasTool(QStringLiteral("pdfimages")))
            GTEST_SKIP() << "needs poppler-utils";
    }
    QString path(const QString& name) const { return m_folder.filePath(name); }
    QString out() const { return m_folder.filePath(QStringLiteral("out")); }

    QTemporaryDir m_folder;
};

} // namespace

TEST_F(PdfLighten, AScanBecomesPicturesOfItsPagesAtTheLadderFirstStep)
{
    const QString scan = path(QStringLiteral("scan.pdf"));
    ASSERT_TRUE(writeScannedPdf(scan, 3));
    const QString light = Lightener::lightenPdf(scan, LightenTarget::Mail, out());
    EXPECT_EQ(QFileInfo(light).fileName(), QStringLiteral("scan-leger.pdf"));
    EXPECT_LT(Lightener::fileSize(light), Lightener::fileSize(scan));
    EXPECT_EQ(pdfPageCount(light), 3);
    const QString info = runTool(QStringLiteral("pdfinfo"), {light});
    EXPECT_TRUE(info.contains(QStringLiteral("595 x 842 pts (A4)"))) << qPrintable(info);
    // One JPEG per page, embedded as it was encoded, at 150 dots per inch.
    const QString images = runTool(QStringLiteral("pdfimages"), {QStringLiteral("-list"), light});
    EXPECT_EQ(images.count(QStringLiteral(" jpeg ")), 3) << qPrintable(images);
    EXPECT_TRUE(
        images.contains(QRegularExpression(QStringLiteral("1239\\s+1754\\s+rgb\\s+3\\s+8\\s+jpeg.*150\\s+150"))))
        << qPrintable(images);
    // Poppler reads the whole document without complaint.
    QString complaints;
    EXPECT_TRUE(runCommand(QStringLiteral("pdftoppm"),
                           {QStringLiteral("-r"), QStringLiteral("20"), light, path(QStringLiteral("page"))},
                           &complaints));
    EXPECT_TRUE(complaints.isEmpty()) << qPrintable(complaints);

    // The same through the renderer alone, at a chosen resolution.
    EXPECT_TRUE(Lightener::renderPdf(scan, 72, 0.5, path(QStringLiteral("small.pdf"))));
    EXPECT_TRUE(runTool(QStringLiteral("pdfimages"), {QStringLiteral("-list"), path(QStringLiteral("small.pdf"))})
                    .contains(QRegularExpression(QStringLiteral("595\\s+842\\s+rgb"))));
}

TEST_F(PdfLighten, TurnedPagesAndPdfsThatWouldGrowAreHandedOnUnchanged)
{
    const QString scan = path(QStringLiteral("scan.pdf"));
    ASSERT_TRUE(writeScannedPdf(scan, 2));
    const QByteArray original = contents(scan);
    // A page turned by itself, and the page tree turned for every page under it.
    for (int page : {1, -1}) {
        const QString name = QStringLiteral("turned%1.pdf").arg(page);
        const QByteArray turned = withPageRotation(original, page, 90);
        ASSERT_FALSE(turned.isEmpty());
        ASSERT_TRUE(write(path(name), turned));
        ASSERT_EQ(pdfPageCount(path(name)), 2);
        const QString output = Lightener::lightenPdf(path(name), LightenTarget::WhatsApp, out());
        EXPECT_EQ(QFileInfo(output).fileName(), name);
        EXPECT_EQ(contents(output), turned);
    }

    // A page of text: drawn as a picture it would weigh more. Copied under its own name (numbered when
    // taken).
    {
        QPdfWriter writer(path(QStringLiteral("letter.pdf")));
        QPainter painter(&writer);
        painter.drawText(QPointF(200, 200), QStringLiteral("Madame, Monsieur,"));
    }
    const QString letter = Lightener::lightenPdf(path(QStringLiteral("letter.pdf")), LightenTarget::Mail, out());
    EXPECT_EQ(QFileInfo(letter).fileName(), QStringLiteral("letter.pdf"));
    EXPECT_EQ(contents(letter), contents(path(QStringLiteral("letter.pdf"))));
    EXPECT_EQ(
        QFileInfo(Lightener::lightenPdf(path(QStringLiteral("letter.pdf")), LightenTarget::Mail, out())).fileName(),
        QStringLiteral("letter-2.pdf"));
    for (const QString& name : entries(out()))
        EXPECT_FALSE(name.startsWith(u'.')) << qPrintable(name);
}

TEST_F(PdfLighten, LockedCutAndEmptyPdfsFail)
{
    const QString scan = path(QStringLiteral("scan.pdf"));
    ASSERT_TRUE(writeScannedPdf(scan, 1));
    if (hasTool(QStringLiteral("gs"))) {
        ASSERT_TRUE(runCommand(QStringLiteral("gs"),
                               {QStringLiteral("-q"), QStringLiteral("-dNOPAUSE"), QStringLiteral("-dBATCH"),
                                QStringLiteral("-sDEVICE=pdfwrite"), QStringLiteral("-sOwnerPassword=owner"),
                                QStringLiteral("-sUserPassword=secret"),
                                QStringLiteral("-sOutputFile=") + path(QStringLiteral("locked.pdf")), scan}));
        try {
            Lightener::lightenPdf(path(QStringLiteral("locked.pdf")), LightenTarget::Mail, out());
            ADD_FAILURE() << "a locked PDF was lightened";
        } catch (const LightenError& error) {
            EXPECT_EQ(error.kind(), LightenError::Kind::Protected);
        }
    }
    const QByteArray pdf = contents(scan);
    ASSERT_TRUE(write(path(QStringLiteral("cut.pdf")), pdf.left(400)));
    const QByteArray noPages = "%PDF-1.4\n1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n"
                               "2 0 obj\n<< /Type /Pages /Kids [] /Count 0 >>\nendobj\n"
                               "trailer\n<< /Root 1 0 R >>\n%%EOF\n";
    ASSERT_TRUE(write(path(QStringLiteral("empty.pdf")), noPages));
    ASSERT_TRUE(write(path(QStringLiteral("text.pdf")), "Bonjour\n"));
    for (const QString& name : {QStringLiteral("cut.pdf"), QStringLiteral("empty.pdf"), QStringLiteral("text.pdf")}) {
        try {
            Lightener::lightenPdf(path(name), LightenTarget::Mail, out());
            ADD_FAILURE() << qPrintable(name) << " was lightened";
        } catch (const LightenError& error) {
            EXPECT_EQ(error.kind(), LightenError::Kind::Unreadable) << qPrintable(name);
        }
    }
    EXPECT_FALSE(Lightener::renderPdf(path(QStringLiteral("empty.pdf")), 150, 0.6, path(QStringLiteral("r.pdf"))));
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("r.pdf"))));
    EXPECT_EQ(entries(out()), QStringList());
}

TEST(ZipOrCopy, ZippedOnlyWhenSmallerAndCheckedByUnzip)
{
    QTemporaryDir folder;
    const QString out = folder.filePath(QStringLiteral("out"));
    const QString report = folder.filePath(QStringLiteral("rapport annuel.docx"));
    QByteArray text;
    for (int i = 0; i < 20'000; ++i)
        text += "Ligne " + QByteArray::number(i) + " du rapport, répétée.\n";
    ASSERT_TRUE(write(report, text));
    const QString zipped = Lightener::zipOrCopy(report, out);
    EXPECT_EQ(QFileInfo(zipped).fileName(), QStringLiteral("rapport annuel.docx.zip"));
    EXPECT_LT(Lightener::fileSize(zipped), text.size() / 3);
    if (hasTool(QStringLiteral("unzip"))) {
        EXPECT_TRUE(runCommand(QStringLiteral("unzip"), {QStringLiteral("-tq"), zipped}));
        EXPECT_EQ(runTool(QStringLiteral("unzip"), {QStringLiteral("-p"), zipped}).toUtf8(), text);
        EXPECT_TRUE(runTool(QStringLiteral("unzip"), {QStringLiteral("-l"), zipped})
                        .contains(QStringLiteral("rapport annuel.docx")));
    }
    EXPECT_EQ(QFileInfo(Lightener::zipOrCopy(report, out)).fileName(), QStringLiteral("rapport annuel.docx-2.zip"));

    // Random bytes do not shrink: copied whole under their own name.
    QByteArray noise(300'000, Qt::Uninitialized);
    QRandomGenerator random(3);
    random.fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);
    const QString raw = folder.filePath(QStringLiteral("IMG_0001.DNG"));
    ASSERT_TRUE(write(raw, noise));
    EXPECT_EQ(Lightener::routeFor(raw), LightenRoute::Other);
    const QString copied = Lightener::zipOrCopy(raw, out);
    EXPECT_EQ(QFileInfo(copied).fileName(), QStringLiteral("IMG_0001.DNG"));
    EXPECT_EQ(contents(copied), noise);

    // An empty file cannot shrink either.
    ASSERT_TRUE(write(folder.filePath(QStringLiteral("vide.txt")), {}));
    EXPECT_EQ(Lightener::fileSize(Lightener::zipOrCopy(folder.filePath(QStringLiteral("vide.txt")), out)), 0);
    EXPECT_EQ(entries(out).size(), 4);
    EXPECT_THROW(Lightener::zipOrCopy(folder.filePath(QStringLiteral("absent.txt")), out), FileError);
}

TEST(LightenRoutes, TheExtensionChoosesAndTheOutcomeMeasures)
{
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/IMG_0001.HEIC")), LightenRoute::Photo);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/scan.TIFF")), LightenRoute::Photo);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/anim.webp")), LightenRoute::Photo);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/raw.dng")), LightenRoute::Other);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/drawing.svg")), LightenRoute::Other);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/IMG_0002.MOV")), LightenRoute::Video);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/film.mkv")), LightenRoute::Video);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/Facture.PDF")), LightenRoute::Pdf);
    EXPECT_EQ(Lightener::routeFor(QStringLiteral("/a/jpg")), LightenRoute::Other);

    EXPECT_FALSE(lightenTargetFromRawValue(QStringLiteral("WhatsApp")));
    for (LightenTarget target : allLightenTargets)
        EXPECT_EQ(lightenTargetFromRawValue(rawValue(target)), target);

    QTemporaryDir folder;
    const QString notes = folder.filePath(QStringLiteral("notes.txt"));
    ASSERT_TRUE(write(notes, QByteArray(50'000, 'a')));
    LightenOptions options;
    const LightenOutcome outcome = Lightener::lighten(notes, options, folder.filePath(QStringLiteral("out")));
    EXPECT_EQ(outcome.sizeBefore, 50'000);
    EXPECT_EQ(outcome.sizeAfter, Lightener::fileSize(outcome.output));
    EXPECT_LT(outcome.sizeAfter, 1000);
    // A folder or a device is no file to lighten.
    EXPECT_THROW(Lightener::lighten(folder.path(), options, folder.filePath(QStringLiteral("out"))), FileError);
    EXPECT_THROW(Lightener::lighten(QStringLiteral("/dev/zero"), options, folder.filePath(QStringLiteral("out"))),
                 FileError);
}
