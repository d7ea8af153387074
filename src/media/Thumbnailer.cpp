#include "media/Thumbnailer.h"

#include "media/HeifImage.h"
#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QImageReader>
#include <QProcess>
#include <QStandardPaths>

#include <memory>

namespace nuvrel {

namespace {

constexpr int videoTimeoutMs = 15'000;

QImage fitted(QImage image, int maxSide)
{
    if (image.isNull() || (image.width() <= maxSide && image.height() <= maxSide))
        return image;
    return image.scaled(maxSide, maxSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

QImage decodeHeif(const QByteArray& data, int maxSide)
{
    HeifPointer<heif_context> context(heif_context_alloc());
    if (!context)
        return {};
    // The data outlives the context: no copy needed.
    if (heif_context_read_from_memory_without_copy(context.get(), data.constData(), size_t(data.size()), nullptr)
            .code != heif_error_Ok)
        return {};
    heif_image_handle* primaryRaw = nullptr;
    if (heif_context_get_primary_image_handle(context.get(), &primaryRaw).code != heif_error_Ok)
        return {};
    HeifPointer<heif_image_handle> primary(primaryRaw);

    // A grid cell is content with a stored thumbnail half its size.
    const HeifPointer<heif_image_handle> thumbnail = heifThumbnail(primary.get(), (maxSide + 1) / 2);
    heif_image_handle* handle = thumbnail ? thumbnail.get() : primary.get();

    return decodeHeifImage(handle, maxSide);
}

} // namespace

bool Thumbnailer::isHeif(const QByteArray& data)
{
    if (data.size() < 12 || data.mid(4, 4) != "ftyp")
        return false;
    const QByteArray brand = data.mid(8, 4);
    return brand == "heic" || brand == "heix" || brand == "heim" || brand == "heis" || brand == "hevc" ||
           brand == "hevx" || brand == "mif1" || brand == "msf1" || brand == "avif";
}

QImage Thumbnailer::image(const QByteArray& data, int maxSide)
{
    if (data.isEmpty() || maxSide <= 0)
        return {};
    if (isHeif(data))
        return decodeHeif(data, maxSide);

    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > maxSide || size.height() > maxSide)) {
        // JPEG decodes straight to a fraction of its size; other formats scale after decoding.
        reader.setScaledSize(size.scaled(maxSide, maxSide, Qt::KeepAspectRatio));
    }
    return fitted(reader.read(), maxSide);
}

QString Thumbnailer::ffmpegPath()
{
    // An application started from the Dock does not inherit the shell's PATH: look where Homebrew puts it.
    static const QString path = [] {
        QString found = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
        if (found.isEmpty())
            found = QStandardPaths::findExecutable(
                QStringLiteral("ffmpeg"), {QStringLiteral("/opt/homebrew/bin"), QStringLiteral("/usr/local/bin")});
        return found;
    }();
    return path;
}

QImage Thumbnailer::videoFrame(const QString& path, int maxSide, const std::atomic<bool>* cancel)
{
    const QString ffmpeg = ffmpegPath();
    if (ffmpeg.isEmpty() || maxSide <= 0)
        return {};
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    // The filter keeps the aspect ratio; ffmpeg already turns phone videos upright.
    const QString scale =
        QStringLiteral("scale=w=%1:h=%1:force_original_aspect_ratio=decrease:force_divisible_by=2").arg(maxSide);
    process.start(ffmpeg,
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-nostdin"), QStringLiteral("-i"),
                   QDir::toNativeSeparators(path), QStringLiteral("-frames:v"), QStringLiteral("1"),
                   QStringLiteral("-vf"), scale, QStringLiteral("-f"), QStringLiteral("image2pipe"),
                   QStringLiteral("-c:v"), QStringLiteral("png"), QStringLiteral("-")});
    // In slices, so that a closing explorer does not wait for a slow video.
    QElapsedTimer waited;
    waited.start();
    while (!process.waitForFinished(100)) {
        if (process.state() == QProcess::NotRunning)
            break;
        if (waited.elapsed() > videoTimeoutMs || (cancel && cancel->load(std::memory_order_relaxed))) {
            process.kill();
            process.waitForFinished();
            return {};
        }
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return {};
    QImage frame;
    frame.loadFromData(process.readAllStandardOutput(), "PNG");
    return fitted(frame, maxSide);
}

} // namespace nuvrel
