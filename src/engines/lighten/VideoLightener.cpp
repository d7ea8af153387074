#include "engines/lighten/LightenError.h"
#include "engines/lighten/LightenFiles.h"
#include "engines/lighten/Lightener.h"
#include "ground/NewFile.h"
#include "media/Thumbnailer.h"
#include "media/VideoProbe.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QProcess>

#include <memory>

namespace nuvrel {

namespace {

// The ffmpeg command of each export, as a JSON array (QT_LOGGING_RULES="nuvrel.lighten.debug=true"):
// what the benchmark replays alone to measure our overhead, and what a bug report needs.
Q_LOGGING_CATEGORY(lightenLog, "nuvrel.lighten", QtWarningMsg)

enum class Export { Done, Failed, DiskFull, Cancelled };

constexpr qsizetype keptErrorBytes = qsizetype(64) * 1024;

// Fits the picture into `box`, turned for a portrait video (ffmpeg has already turned the frames as
// the file's rotation says), never enlarging it; H.264 wants even sides.
QString scaleFilter(QSize box)
{
    return QStringLiteral("scale=w='min(iw,if(gte(iw,ih),%1,%2))':h='min(ih,if(gte(iw,ih),%2,%1))'"
                          ":force_original_aspect_ratio=decrease:force_divisible_by=2")
        .arg(box.width())
        .arg(box.height());
}

// HLG and PQ shown on an SDR screen look grey and flat unless their light is mapped down.
const QString toneMapping = QStringLiteral(",zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,"
                                           "tonemap=tonemap=hable:desat=0,zscale=t=bt709:m=bt709:r=tv");

QStringList exportArguments(const QString& source, const QString& output, QSize box, const VideoProbe& probe,
                            bool strip)
{
    QStringList arguments{QStringLiteral("-nostdin"),      QStringLiteral("-hide_banner"), QStringLiteral("-v"),
                          QStringLiteral("error"),         QStringLiteral("-y"),           QStringLiteral("-i"),
                          QDir::toNativeSeparators(source)};
    // The first picture and the first sound; no data, subtitle or timecode track.
    arguments << QStringLiteral("-map") << QStringLiteral("0:v:0");
    if (probe.hasAudio)
        arguments << QStringLiteral("-map") << QStringLiteral("0:a:0");
    arguments << QStringLiteral("-vf")
              << scaleFilter(box) + (probe.highDynamicRange ? toneMapping : QString()) +
                     QStringLiteral(",format=yuv420p");
    arguments << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset")
              << QStringLiteral("veryfast") << QStringLiteral("-crf") << QStringLiteral("23");
    if (probe.highDynamicRange)
        arguments << QStringLiteral("-color_primaries") << QStringLiteral("bt709") << QStringLiteral("-color_trc")
                  << QStringLiteral("bt709") << QStringLiteral("-colorspace") << QStringLiteral("bt709");
    if (probe.hasAudio)
        arguments << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-b:a")
                  << QStringLiteral("128k");
    if (strip) {
        // Neither the file's nor the tracks' tags: the position, the phone, the date go.
        arguments << QStringLiteral("-map_metadata") << QStringLiteral("-1") << QStringLiteral("-map_metadata:s")
                  << QStringLiteral("-1") << QStringLiteral("-map_chapters") << QStringLiteral("-1")
                  << QStringLiteral("-movflags") << QStringLiteral("+faststart");
    } else {
        // Every tag of the file kept under its own key: the capture date, and the position that phones
        // write as "com.apple.quicktime.location.ISO6709".
        arguments << QStringLiteral("-map_metadata") << QStringLiteral("0") << QStringLiteral("-movflags")
                  << QStringLiteral("+faststart+use_metadata_tags");
    }
    arguments << QStringLiteral("-progress") << QStringLiteral("pipe:1") << QStringLiteral("-nostats")
              << QStringLiteral("-f") << QStringLiteral("mp4") << QDir::toNativeSeparators(output);
    return arguments;
}

Export runExport(const QString& ffmpeg, const QStringList& arguments, qint64 durationUs,
                 const LightenProgress& progress, const std::atomic<bool>* cancel)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    // Its failures are read below: in English whatever the user's language.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    process.setProcessEnvironment(environment);
    qCDebug(lightenLog).noquote()
        << "ffmpeg" << QJsonDocument(QJsonArray::fromStringList(arguments)).toJson(QJsonDocument::Compact);
    process.start(ffmpeg, arguments);
    if (!process.waitForStarted())
        return Export::Failed;

    QByteArray pending;
    QByteArray errors;
    const auto readReports = [&] {
        pending += process.readAllStandardOutput();
        errors += process.readAllStandardError();
        if (errors.size() > keptErrorBytes)
            errors = errors.right(keptErrorBytes);
        qsizetype end = 0;
        while ((end = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(end).trimmed();
            pending.remove(0, end + 1);
            if (progress && durationUs > 0 && line.startsWith("out_time_us=")) {
                bool ok = false;
                const qint64 written = line.mid(12).toLongLong(&ok);
                if (ok && written >= 0)
                    progress(std::min(1.0, double(written) / double(durationUs)));
            }
        }
    };
    while (process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        readReports();
        if (lighten::isCancelled(cancel)) {
            process.kill();
            process.waitForFinished();
            return Export::Cancelled;
        }
    }
    readReports();
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return Export::Done;
    return errors.contains("No space left on device") ? Export::DiskFull : Export::Failed;
}

} // namespace

QString Lightener::lightenVideo(const QString& source, LightenTarget target, bool strip, const QString& outputFolder,
                                const LightenProgress& progress, const std::atomic<bool>* cancel)
{
    lighten::checkSource(source);
    const QString ffmpeg = Thumbnailer::ffmpegPath();
    if (ffmpeg.isEmpty() || VideoProbe::ffprobePath().isEmpty())
        throw LightenError(LightenError::Kind::NoVideoTool);
    const std::optional<VideoProbe> probe = VideoProbe::of(source, cancel);
    if (lighten::isCancelled(cancel))
        throw LightenError(LightenError::Kind::Cancelled);
    if (!probe)
        throw LightenError(LightenError::Kind::VideoFailed);

    const QString destination = QDir(outputFolder).filePath(lighten::stem(source) + QStringLiteral("-leger.mp4"));
    const std::optional<qint64> budget = byteBudget(target);
    const QList<QSize> presets = videoPresets(target);
    // The last complete export; a smaller size replaces it only once that one is complete too.
    std::unique_ptr<NewFile> kept;
    for (const QSize& preset : presets) {
        auto attempt = std::make_unique<NewFile>(destination, FreeNameStyle::Hyphenated);
        const QString written = attempt->handOver();
        const Export result = runExport(ffmpeg, exportArguments(source, written, preset, *probe, strip),
                                        probe->durationUs, progress, cancel);
        if (result == Export::Cancelled)
            throw LightenError(LightenError::Kind::Cancelled);
        if (result == Export::DiskFull)
            throw FileError(FileError::Operation::Write, SystemErrorKind::NoSpace, destination);
        if (result == Export::Failed)
            continue;
        kept = std::move(attempt);
        if (!budget || fileSize(written) <= *budget)
            break;
    }
    if (!kept)
        throw LightenError(LightenError::Kind::VideoFailed);
    QString output = kept->commit();
    copyDates(source, output);
    return output;
}

} // namespace nuvrel
