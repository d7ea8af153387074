#include "engines/lighten/Lightener.h"

#include "engines/lighten/LightenError.h"
#include "engines/lighten/LightenFiles.h"
#include "ground/FreeName.h"
#include "ground/NewFile.h"
#include "ground/RegularFile.h"
#include "media/PhotoFile.h"

#include <QDir>
#include <QFileInfo>

#include <zip.h>

#include <cerrno>
#include <memory>

#if defined(Q_OS_MACOS)
#include <sys/attr.h>
#include <unistd.h>
#endif

namespace nuvrel {

namespace lighten {

void checkSource(const QString& path)
{
    QFile file;
    if (!openRegularFile(file, path))
        throw FileError::fromErrno(FileError::Operation::Read, errno, path);
}

QString stem(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 ? name.left(dot) : name;
}

QString copyInto(const QString& source, const QString& folder, const QString& name)
{
    QFile in;
    if (!openRegularFile(in, source))
        throw FileError::fromErrno(FileError::Operation::Read, errno, source);
    NewFile out(QDir(folder).filePath(name), FreeNameStyle::Hyphenated);
    constexpr qint64 blockSize = qint64(1) << 20;
    QByteArray block(blockSize, Qt::Uninitialized);
    for (;;) {
        errno = 0;
        const qint64 read = in.read(block.data(), blockSize);
        if (read < 0)
            throw FileError::fromErrno(FileError::Operation::Read, errno ? errno : EIO, source);
        if (read == 0)
            break;
        errno = 0;
        if (out.device().write(block.constData(), read) != read)
            throw FileError::fromErrno(FileError::Operation::Write, errno ? errno : EIO, QDir(folder).filePath(name));
    }
    return out.commit();
}

} // namespace lighten

namespace {

bool isMovie(const QString& suffix)
{
    static const QStringList suffixes{
        QStringLiteral("mov"), QStringLiteral("mp4"),  QStringLiteral("m4v"), QStringLiteral("3gp"),
        QStringLiteral("3g2"), QStringLiteral("avi"),  QStringLiteral("mkv"), QStringLiteral("webm"),
        QStringLiteral("mpg"), QStringLiteral("mpeg"), QStringLiteral("mts"), QStringLiteral("m2ts"),
        QStringLiteral("wmv"), QStringLiteral("flv"),  QStringLiteral("ogv"), QStringLiteral("qt")};
    return suffixes.contains(suffix);
}

struct ZipDeleter
{
    void operator()(zip_t* archive) const { zip_discard(archive); }
};

// The source alone in a zip archive, deflated at the best level, written under `temporary`: true when
// the archive is complete. libzip writes beside it and renames its work over it on closing.
bool zipTo(const QString& source, const QString& temporary)
{
    int error = 0;
    std::unique_ptr<zip_t, ZipDeleter> archive(
        zip_open(QFile::encodeName(temporary).constData(), ZIP_TRUNCATE, &error));
    if (!archive)
        return false;
    zip_source_t* data = zip_source_file(archive.get(), QFile::encodeName(source).constData(), 0, 0);
    if (!data)
        return false;
    const zip_int64_t index =
        zip_file_add(archive.get(), QFileInfo(source).fileName().toUtf8().constData(), data, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(data);
        return false;
    }
    if (zip_set_file_compression(archive.get(), zip_uint64_t(index), ZIP_CM_DEFLATE, 9) != 0)
        return false;
    zip_file_set_mtime(archive.get(), zip_uint64_t(index), time_t(QFileInfo(source).lastModified().toSecsSinceEpoch()),
                       0);
    if (zip_close(archive.get()) != 0)
        return false; // the deleter discards it
    static_cast<void>(archive.release());
    return true;
}

} // namespace

LightenRoute Lightener::routeFor(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (PhotoFile::isDecodable(suffix))
        return LightenRoute::Photo;
    if (isMovie(suffix))
        return LightenRoute::Video;
    if (suffix == QLatin1StringView("pdf"))
        return LightenRoute::Pdf;
    return LightenRoute::Other;
}

LightenOutcome Lightener::lighten(const QString& source, const LightenOptions& options, const QString& outputFolder,
                                  const LightenProgress& progress, const std::atomic<bool>* cancel)
{
    // Each route checks its source: a missing file or a folder fails there with the system's reason.
    LightenOutcome outcome;
    outcome.sizeBefore = fileSize(source);
    switch (routeFor(source)) {
    case LightenRoute::Photo:
        outcome.output = lightenImage(source, options.target, options.stripLocation, options.convertHeic, outputFolder);
        break;
    case LightenRoute::Video:
        outcome.output = lightenVideo(source, options.target, options.stripLocation, outputFolder, progress, cancel);
        break;
    case LightenRoute::Pdf: outcome.output = lightenPdf(source, options.target, outputFolder, cancel); break;
    case LightenRoute::Other: outcome.output = zipOrCopy(source, outputFolder); break;
    }
    outcome.sizeAfter = fileSize(outcome.output);
    return outcome;
}

QString Lightener::zipOrCopy(const QString& source, const QString& outputFolder)
{
    lighten::checkSource(source);
    const qint64 sourceSize = fileSize(source);
    const QString name = QFileInfo(source).fileName();
    {
        // Resource forks are a macOS matter that no receiver of a zip wants; there is none to keep here.
        NewFile zip(QDir(outputFolder).filePath(name + QStringLiteral(".zip")), FreeNameStyle::Hyphenated);
        const QString temporary = zip.handOver();
        if (zipTo(source, temporary)) {
            const qint64 zipped = fileSize(temporary);
            if (zipped >= 1 && zipped < sourceSize)
                return zip.commit();
        }
    }
    return lighten::copyInto(source, outputFolder, name);
}

QString Lightener::uniqueUrl(const QString& folder, const QString& name)
{
    return freeName(QDir(folder).filePath(name), FreeNameStyle::Hyphenated);
}

qint64 Lightener::fileSize(const QString& path)
{
    return QFileInfo(path).size();
}

void Lightener::copyDates(const QString& from, const QString& to)
{
    const QFileInfo source(from);
    if (!source.exists())
        return;
    QFile target(to);
    if (target.open(QIODevice::ReadOnly)) {
        target.setFileTime(source.lastModified(), QFileDevice::FileModificationTime);
        target.close();
    }
#if defined(Q_OS_MACOS)
    const QDateTime born = source.birthTime();
    if (born.isValid()) {
        attrlist attributes{};
        attributes.bitmapcount = ATTR_BIT_MAP_COUNT;
        attributes.commonattr = ATTR_CMN_CRTIME;
        timespec time{time_t(born.toSecsSinceEpoch()), long(born.time().msec()) * 1'000'000};
        setattrlist(QFile::encodeName(to).constData(), &attributes, &time, sizeof time, 0);
    }
#endif
}

} // namespace nuvrel
