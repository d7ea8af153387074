#include "media/VideoProbe.h"

#include "media/Thumbnailer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

namespace nuvrel {

namespace {

constexpr int probeTimeoutMs = 30'000;
constexpr qint64 maxReportBytes = qint64(4) * 1024 * 1024;

} // namespace

QString VideoProbe::ffprobePath()
{
    static const QString path = [] {
        // Beside ffmpeg first: the two come from one package, in one version.
        const QString ffmpeg = Thumbnailer::ffmpegPath();
        if (!ffmpeg.isEmpty()) {
            QString beside = QFileInfo(ffmpeg).dir().filePath(QStringLiteral("ffprobe"));
            if (QFileInfo(beside).isExecutable())
                return beside;
        }
        return QStandardPaths::findExecutable(QStringLiteral("ffprobe"));
    }();
    return path;
}

std::optional<VideoProbe> VideoProbe::of(const QString& path, const std::atomic<bool>* cancel)
{
    const QString ffprobe = ffprobePath();
    if (ffprobe.isEmpty())
        return std::nullopt;
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(ffprobe, {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-of"),
                            QStringLiteral("json"), QStringLiteral("-show_format"), QStringLiteral("-show_streams"),
                            QStringLiteral("-i"), QDir::toNativeSeparators(path)});
    QByteArray report;
    QElapsedTimer waited;
    waited.start();
    while (!process.waitForFinished(100)) {
        report += process.readAllStandardOutput();
        if (process.state() == QProcess::NotRunning)
            break;
        if (waited.elapsed() > probeTimeoutMs || report.size() > maxReportBytes ||
            (cancel && cancel->load(std::memory_order_relaxed))) {
            process.kill();
            process.waitForFinished();
            return std::nullopt;
        }
    }
    report += process.readAllStandardOutput();
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return std::nullopt;

    const QJsonObject root = QJsonDocument::fromJson(report).object();
    VideoProbe probe;
    bool hasVideo = false;
    const QJsonArray streams = root.value(QLatin1StringView("streams")).toArray();
    for (const QJsonValue value : streams) {
        const QJsonObject stream = value.toObject();
        const QString type = stream.value(QLatin1StringView("codec_type")).toString();
        // A cover picture in an audio file is a "video" stream of one frame: not a video.
        const bool stillPicture = stream.value(QLatin1StringView("disposition"))
                                      .toObject()
                                      .value(QLatin1StringView("attached_pic"))
                                      .toInt() != 0;
        if (type == QLatin1StringView("video") && !stillPicture && !hasVideo) {
            hasVideo = true;
            probe.size = QSize(stream.value(QLatin1StringView("width")).toInt(),
                               stream.value(QLatin1StringView("height")).toInt());
            const QString transfer = stream.value(QLatin1StringView("color_transfer")).toString();
            probe.highDynamicRange =
                transfer == QLatin1StringView("arib-std-b67") || transfer == QLatin1StringView("smpte2084");
        } else if (type == QLatin1StringView("audio")) {
            probe.hasAudio = true;
        }
    }
    if (!hasVideo || probe.size.isEmpty())
        return std::nullopt;
    const double seconds =
        root.value(QLatin1StringView("format")).toObject().value(QLatin1StringView("duration")).toString().toDouble();
    if (seconds > 0 && seconds < 1e7)
        probe.durationUs = qint64(seconds * 1e6);
    return probe;
}

} // namespace nuvrel
