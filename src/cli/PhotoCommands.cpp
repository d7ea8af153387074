#include "cli/PhotoCommands.h"

#include "cli/TextTable.h"
#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/FolderSource.h"
#include "engines/photobackup/ImportRules.h"
#include "engines/photobackup/LibraryBackup.h"
#include "engines/photobackup/PhotoImport.h"
#include "engines/photobackup/PhotosLibrary.h"
#include "l10n/L.h"
#include "platform/system/ImobilePhoneWatcher.h"
#include "platform/system/SystemVolumes.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QSettings>
#include <QTimer>

#include <atomic>
#include <csignal>
#include <unistd.h>

namespace nuvrel::cli {

namespace {

// Ctrl+C asks the run to stop after the file in hand; a second one ends the program at once.
std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void askStop(int signal)
{
    stopAsked.store(true);
    std::signal(signal, SIG_DFL);
}

class StopOnInterrupt
{
public:
    StopOnInterrupt()
    {
        stopAsked = false;
        m_interrupt = std::signal(SIGINT, askStop);
        m_terminate = std::signal(SIGTERM, askStop);
    }
    ~StopOnInterrupt()
    {
        std::signal(SIGINT, m_interrupt);
        std::signal(SIGTERM, m_terminate);
    }
    Q_DISABLE_COPY_MOVE(StopOnInterrupt)

private:
    void (*m_interrupt)(int) = SIG_DFL;
    void (*m_terminate)(int) = SIG_DFL;
};

// One line redrawn in place on a terminal, a few times a second at most; nothing elsewhere.
class ProgressLine
{
public:
    explicit ProgressLine(QTextStream& err)
        : m_err(err)
        , m_terminal(::isatty(STDERR_FILENO) == 1)
    {
        m_clock.start();
    }
    void show(const QString& text)
    {
        if (!m_terminal || m_clock.elapsed() < 200)
            return;
        m_clock.restart();
        m_err << "\r\033[K" << escapedControls(text).left(120) << Qt::flush;
        m_shown = true;
    }
    void clear()
    {
        if (m_shown)
            m_err << "\r\033[K" << Qt::flush;
        m_shown = false;
    }

private:
    QTextStream& m_err;
    bool m_terminal;
    bool m_shown = false;
    QElapsedTimer m_clock;
};

std::optional<QDate> dayOption(const std::optional<QString>& value, const char* option, QTextStream& err, bool& bad)
{
    if (!value)
        return std::nullopt;
    const QDate day = QDate::fromString(*value, Qt::ISODate);
    if (!day.isValid()) {
        err << L("Date invalide pour %@ : %@ (attendu : AAAA-MM-JJ).", QString::fromLatin1(option), *value) << '\n';
        bad = true;
    }
    return day;
}

// The phone on the cable once it has said what it is, or why it cannot be read, with the exit status
// that says so.
std::shared_ptr<CameraSource> phoneOnCable(QTextStream& err, int& exitCode)
{
    // The source lives on its own: the watcher may go once it is made.
    ImobilePhoneWatcher watcher;
    QEventLoop loop;
    const auto settled = [&watcher] {
        return watcher.state() != PhoneWatcher::State::Searching && watcher.state() != PhoneWatcher::State::Connecting;
    };
    QObject::connect(&watcher, &PhoneWatcher::stateChanged, &loop, [&] {
        if (settled())
            loop.quit();
    });
    QTimer::singleShot(std::chrono::seconds(20), &loop, &QEventLoop::quit);
    watcher.start();
    if (!settled())
        loop.exec();
    const QString name = watcher.deviceName().isEmpty() ? QStringLiteral("iPhone") : watcher.deviceName();
    exitCode = AccessRefused;
    switch (watcher.state()) {
    case PhoneWatcher::State::Ready:
        if (std::shared_ptr<CameraSource> camera = watcher.camera())
            return camera;
        break;
    case PhoneWatcher::State::NoDevice:
    case PhoneWatcher::State::Searching:
        err << L("Aucun iPhone trouvé") << '\n'
            << L("Branche ton iPhone avec le câble et déverrouille-le, puis relance la commande.") << '\n';
        exitCode = NothingFound;
        return nullptr;
    case PhoneWatcher::State::Locked:
        err << L("« %@ » est verrouillé", name) << '\n'
            << L("Déverrouille ton iPhone et touche « Se fier à cet ordinateur », puis relance la commande.") << '\n';
        return nullptr;
    case PhoneWatcher::State::Refused:
        err << L("« %@ » a refusé de se fier à cet ordinateur. Débranche-le, rebranche-le, puis touche « Se fier » "
                 "quand l'iPhone le demande.",
                 name)
            << '\n';
        return nullptr;
    case PhoneWatcher::State::Connecting:
    case PhoneWatcher::State::Failed: break;
    }
    err << L("« %@ » ne répond pas comme un iPhone. Débranche-le, rebranche-le, puis touche Actualiser.", name) << '\n';
    return nullptr;
}

QString destinationOf(const CommandLine& line)
{
    if (line.destination)
        return QFileInfo(*line.destination).absoluteFilePath();
    const QString chosen = QSettings().value(QLatin1StringView(photoBackupFolderKey)).toString();
    return chosen.isEmpty() ? defaultPhotoBackupFolder() : chosen;
}

QString endName(ImportOutcome::End end)
{
    switch (end) {
    case ImportOutcome::End::Finished: return QStringLiteral("finished");
    case ImportOutcome::End::Stopped: return QStringLiteral("stopped");
    case ImportOutcome::End::SourceSilent: return QStringLiteral("sourceSilent");
    case ImportOutcome::End::SourceGone: return QStringLiteral("sourceGone");
    case ImportOutcome::End::DestinationFailed: return QStringLiteral("destinationFailed");
    }
    return {};
}

void printJson(QTextStream& out, const QString& end, const QString& destination, int copied, int skipped,
               const QStringList& failures, const QString& message)
{
    out << "{\n  \"end\": " << jsonQuoted(end) << ",\n  \"destination\": " << jsonQuoted(destination)
        << ",\n  \"copied\": " << copied << ",\n  \"alreadyPresent\": " << skipped
        << ",\n  \"failed\": " << failures.size() << ",\n  \"failures\": [";
    for (qsizetype i = 0; i < failures.size(); ++i)
        out << (i == 0 ? "\n    " : ",\n    ") << jsonQuoted(failures[i]);
    out << (failures.isEmpty() ? "]" : "\n  ]");
    if (!message.isEmpty())
        out << ",\n  \"message\": " << jsonQuoted(message);
    out << "\n}\n";
}

} // namespace

int runPhotoImport(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (line.from.has_value() == line.device || !line.arguments.isEmpty()) {
        err << L("Précise d'où copier : %@ pour l'iPhone branché par câble, ou %@ pour un dossier (un iPhone monté "
                 "comme dossier, une carte d'appareil photo…).",
                 QStringLiteral("--device"), QStringLiteral("--from"))
            << '\n';
        return BadUsage;
    }
    bool bad = false;
    ImportChoices choices;
    choices.photos = line.photos || !line.videos;
    choices.videos = line.videos || !line.photos;
    const std::optional<QDate> since = dayOption(line.since, "--since", err, bad);
    const std::optional<QDate> until = dayOption(line.until, "--until", err, bad);
    if (bad)
        return BadUsage;
    if (since || until) {
        choices.period = Period::Custom;
        choices.from = since.value_or(QDate());
        choices.to = until.value_or(QDate());
    }

    std::shared_ptr<CameraSource> source;
    if (line.device) {
        int exitCode = Found;
        source = phoneOnCable(err, exitCode);
        if (!source)
            return exitCode;
    } else {
        const QString folder = QFileInfo(*line.from).absoluteFilePath();
        if (!QFileInfo(folder).isDir()) {
            err << FileError(FileError::Operation::Read, SystemErrorKind::Missing, folder).message() << '\n';
            return BackupUnreadable;
        }
        SystemVolumes volumes;
        const std::optional<Volume> volume = volumes.volumeOf(folder);
        const QString label =
            volume && FolderSource::isRemovableMountPoint(volume->root + u'/') ? volume->name : QString();
        source = std::make_shared<FolderSource>(folder, FolderSource::nameForFolder(folder, {}, label));
    }

    QList<CameraFile> files;
    try {
        files = source->mediaFiles(nullptr);
    } catch (const LocalizedError& error) {
        err << error.message() << '\n';
        return BackupUnreadable;
    }
    const QDateTime now = QDateTime::currentDateTime();
    const QList<CameraFile> queue = selectFiles(files, choices, now);
    if (queue.isEmpty()) {
        err << L("Rien ne correspond à ta sélection.") << '\n';
        return NothingFound;
    }

    const QString destination = destinationOf(line);
    CopyHistory history;
    history.load();
    StopOnInterrupt interrupt;
    ProgressLine progress(err);
    const ImportOutcome outcome = PhotoImport::run(
        source, queue, destination, history,
        [&](const ImportProgress& state) {
            progress.show(L("%@ sur %@ · %@", state.position, state.total, state.fileName));
        },
        &stopAsked);
    progress.clear();

    if (line.json) {
        printJson(out, endName(outcome.end), destination, outcome.copied, outcome.skipped, outcome.failLog,
                  outcome.endMessage);
    } else {
        out << outcome.summary() << '\n';
        if (!outcome.endMessage.isEmpty())
            out << outcome.endMessage << '\n';
        if (outcome.failed > 0)
            out << L("La liste des fichiers refusés est dans %@.",
                     escapedControls(QDir(destination).filePath(PhotoImport::failLogName())))
                << '\n';
        out << L("Dossier : %@", escapedControls(QDir::toNativeSeparators(destination))) << '\n';
    }
    if (outcome.end != ImportOutcome::End::Finished)
        return CopyStopped;
    return outcome.failed > 0 ? SomeFilesFailed : Found;
}

int runPhotosLibrary(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (line.arguments.size() != 1) {
        err << L("Précise la photothèque à copier (un dossier %@).", QStringLiteral(".photoslibrary")) << '\n';
        return BadUsage;
    }
    const QString package = QFileInfo(line.arguments.constFirst()).absoluteFilePath();
    QList<LibraryAsset> assets;
    try {
        assets = PhotosLibrary::readAssets(package);
    } catch (const LocalizedError& error) {
        err << error.message() << '\n';
        return BackupUnreadable;
    }
    if (assets.isEmpty()) {
        err << L("Cette photothèque ne contient aucune photo ni vidéo.") << '\n';
        return NothingFound;
    }
    const QString destination = destinationOf(line);
    StopOnInterrupt interrupt;
    ProgressLine progress(err);
    const LibraryOutcome outcome = LibraryBackup::run(
        package, assets, destination,
        [&](const LibraryProgress& state) { progress.show(L("%@ sur %@ · %@", state.done, state.total, state.item)); },
        &stopAsked);
    progress.clear();

    if (line.json) {
        const QString end = outcome.end == LibraryOutcome::End::Finished         ? QStringLiteral("finished")
                            : outcome.end == LibraryOutcome::End::Stopped        ? QStringLiteral("stopped")
                            : outcome.end == LibraryOutcome::End::NotEnoughSpace ? QStringLiteral("notEnoughSpace")
                            : outcome.end == LibraryOutcome::End::SourceGone     ? QStringLiteral("sourceGone")
                                                                                 : QStringLiteral("destinationFailed");
        printJson(out, end, destination, outcome.copied, outcome.skipped, outcome.failLog, outcome.endMessage);
    } else {
        if (!outcome.endMessage.isEmpty())
            out << outcome.endMessage << '\n';
        if (outcome.end != LibraryOutcome::End::NotEnoughSpace)
            out << L("Terminé à %@ : %@ copiés, %@ déjà présents, %@ échecs.",
                     QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), outcome.copied, outcome.skipped,
                     outcome.failed)
                << '\n';
        if (outcome.failed > 0)
            out << L("La liste des fichiers refusés est dans %@.",
                     escapedControls(QDir(destination).filePath(LibraryBackup::failListName())))
                << '\n';
        out << L("Dossier : %@", escapedControls(QDir::toNativeSeparators(destination))) << '\n';
    }
    if (outcome.end != LibraryOutcome::End::Finished)
        return CopyStopped;
    return outcome.failed > 0 ? SomeFilesFailed : Found;
}

} // namespace nuvrel::cli
