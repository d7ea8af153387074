#include "support/MediaFixtures.h"

#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace nuvrel::test {

bool hasTool(const QString& program)
{
    return !QStandardPaths::findExecutable(program).isEmpty();
}

bool runCommand(const QString& program, const QStringList& arguments, QString* errors)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    const bool finished = process.waitForFinished(300'000);
    if (errors)
        *errors = QString::fromUtf8(process.readAllStandardError());
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

namespace {

QString output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    process.waitForFinished(120'000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

bool writeDetailedJpeg(const QString& path, QSize size, int qscale)
{
    return runCommand(
        QStringLiteral("ffmpeg"),
        {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"), QStringLiteral("-f"),
         QStringLiteral("lavfi"), QStringLiteral("-i"),
         QStringLiteral("testsrc2=size=%1x%2:rate=1,noise=alls=40:allf=t").arg(size.width()).arg(size.height()),
         QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-q:v"), QString::number(qscale), path});
}

bool plantCameraMetadata(const QString& path, int orientation)
{
    return runCommand(QStringLiteral("exiv2"),
                      {QStringLiteral("-M"), QStringLiteral("set Exif.Image.Make Apple"), QStringLiteral("-M"),
                       QStringLiteral("set Exif.Image.Model iPhone 15 Pro"), QStringLiteral("-M"),
                       QStringLiteral("set Exif.Image.Orientation %1").arg(orientation), QStringLiteral("-M"),
                       QStringLiteral("set Exif.Photo.DateTimeOriginal 2024:05:01 10:11:12"), QStringLiteral("-M"),
                       QStringLiteral("set Exif.GPSInfo.GPSLatitudeRef N"), QStringLiteral("-M"),
                       QStringLiteral("set Exif.GPSInfo.GPSLatitude 48/1 51/1 24/1"), QStringLiteral("-M"),
                       QStringLiteral("set Exif.Photo.MakerNote Undefined 4 1 2 3 4"), QStringLiteral("-M"),
                       QStringLiteral("set Xmp.dc.title Vacances"), path});
}

QString exifReport(const QString& path)
{
    return output(QStringLiteral("exiv2"), {QStringLiteral("-pa"), path});
}

QByteArray embeddedIccProfile(const QString& path)
{
    QProcess process;
    process.start(QStringLiteral("exiv2"), {QStringLiteral("-pC"), path});
    process.waitForFinished(60'000);
    return process.readAllStandardOutput();
}

bool embedIccProfile(const QString& jpegPath, const QString& iccPath)
{
    // exiv2 takes the profile from the file of the same stem with ".icc".
    const QString beside = jpegPath.left(jpegPath.lastIndexOf(u'.')) + QStringLiteral(".icc");
    QFile::remove(beside);
    if (!QFile::copy(iccPath, beside))
        return false;
    const bool done = runCommand(QStringLiteral("exiv2"), {QStringLiteral("-iC"), jpegPath});
    QFile::remove(beside);
    return done;
}

QString probe(const QString& path, const QString& entries)
{
    return output(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"), entries,
                   QStringLiteral("-of"), QStringLiteral("default=noprint_wrappers=1"), path});
}

QByteArray withDisplayRotation(const QByteArray& movie, int degrees)
{
    // The track header's matrix: a, b, u, c, d, v, x, y, w in 16.16 (2.30 for u, v, w), big-endian.
    const qsizetype tkhd = movie.indexOf("tkhd");
    if (tkhd < 4)
        return {};
    const int version = uchar(movie[tkhd + 4]);
    const qsizetype matrix = tkhd + 4 + 4 + (version == 1 ? 8 + 8 + 4 + 4 + 8 : 4 + 4 + 4 + 4 + 4) + 8 + 2 + 2 + 2 + 2;
    constexpr qint32 one = 0x10000;
    qint32 a = one, b = 0, c = 0, d = one;
    switch (degrees) {
    case 90: a = 0, b = one, c = -one, d = 0; break;
    case 180: a = -one, d = -one; break;
    case 270: a = 0, b = -one, c = one, d = 0; break;
    default: break;
    }
    const qint32 values[9] = {a, b, 0, c, d, 0, 0, 0, 0x40000000};
    QByteArray turned = movie;
    for (int i = 0; i < 9; ++i) {
        for (int byte = 0; byte < 4; ++byte)
            turned[matrix + i * 4 + byte] = char(quint32(values[i]) >> (24 - 8 * byte));
    }
    return turned;
}

bool writeScannedPdf(const QString& path, int pages)
{
    QPdfWriter writer(path);
    writer.setResolution(300);
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageMargins(QMarginsF(0, 0, 0, 0));
    QPainter painter(&writer);
    if (!painter.isActive())
        return false;
    QRandomGenerator random(7);
    const QSize pixels(2480, 3508); // A4 at 300 dots per inch
    for (int page = 0; page < pages; ++page) {
        if (page > 0)
            writer.newPage();
        QImage scan(pixels, QImage::Format_RGB32);
        for (int y = 0; y < scan.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(scan.scanLine(y));
            for (int x = 0; x < scan.width(); ++x) {
                // Paper that is not quite white, and lines of "text".
                const int grain = int(random.bounded(24));
                const bool ink = (y / 40) % 2 == 0 && (x / 13 + y / 40 + page) % 5 != 0 && y % 40 > 12;
                const int level = ink ? 40 + grain : 230 + grain;
                line[x] = qRgb(std::min(level, 255), std::min(level, 255), std::min(level + 4, 255));
            }
        }
        painter.drawImage(QRect(QPoint(0, 0), pixels), scan);
    }
    return painter.end();
}

QByteArray withPageRotation(const QByteArray& pdf, int page, int degrees)
{
    static const QRegularExpression pageObject(QStringLiteral("(\\d+) 0 obj\\s*<<\\s*/Type /Page\\s"));
    static const QRegularExpression treeObject(QStringLiteral("(\\d+) 0 obj\\s*<<\\s*/Type /Pages\\s"));
    const QString text = QString::fromLatin1(pdf);
    QRegularExpressionMatch match;
    if (page < 0) {
        match = treeObject.match(text);
    } else {
        QRegularExpressionMatchIterator pagesFound = pageObject.globalMatch(text);
        for (int i = 0; i <= page && pagesFound.hasNext(); ++i)
            match = pagesFound.next();
    }
    if (!match.hasMatch())
        return {};
    const qsizetype open = text.indexOf(QStringLiteral("<<"), match.capturedStart());
    const qsizetype end = text.indexOf(QStringLiteral("endobj"), open);
    const qsizetype close = text.lastIndexOf(QStringLiteral(">>"), end);
    QString body = text.mid(open, close + 2 - open);
    body.insert(2, QStringLiteral("\n/Rotate %1").arg(degrees));

    static const QRegularExpression sizeKey(QStringLiteral("/Size\\s+(\\d+)"));
    static const QRegularExpression rootKey(QStringLiteral("/Root\\s+(\\d+ 0 R)"));
    static const QRegularExpression lastTable(QStringLiteral("startxref\\s+(\\d+)\\s*%%EOF\\s*$"));
    const QRegularExpressionMatch size = sizeKey.match(text, text.lastIndexOf(QStringLiteral("trailer")));
    const QRegularExpressionMatch root = rootKey.match(text, text.lastIndexOf(QStringLiteral("trailer")));
    const QRegularExpressionMatch previous = lastTable.match(text);
    if (!size.hasMatch() || !root.hasMatch() || !previous.hasMatch())
        return {};

    QByteArray updated = pdf;
    if (!updated.endsWith('\n'))
        updated += '\n';
    const qsizetype objectOffset = updated.size();
    const QByteArray number = match.captured(1).toLatin1();
    updated += number + " 0 obj\n" + body.toLatin1() + "\nendobj\n";
    const qsizetype table = updated.size();
    updated += "xref\n0 1\n0000000000 65535 f \n" + number + " 1\n" +
               QByteArray::number(objectOffset).rightJustified(10, '0') + " 00000 n \n";
    updated += "trailer\n<< /Size " + size.captured(1).toLatin1() + " /Root " + root.captured(1).toLatin1() +
               " /Prev " + previous.captured(1).toLatin1() + " >>\nstartxref\n" + QByteArray::number(table) +
               "\n%%EOF\n";
    return updated;
}

} // namespace nuvrel::test
