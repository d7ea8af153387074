#include "models/conversations/ConversationsModel.h"

#include "engines/backup/BackupLocator.h"
#include "engines/backup/BackupReadError.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationPdf.h"
#include "engines/conversations/ConversationSource.h"
#include "engines/conversations/WhatsAppArchive.h"
#include "ground/Job.h"
#include "l10n/L.h"
#include "models/conversations/SavedConversations.h"
#include "platform/Clipboard.h"
#include "platform/Workspace.h"
#include "sessions/conversations/ConversationFiles.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

namespace {

BackupSession::Text failureText(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const ConversationError& error) {
        return [error] { return error.message(); };
    } catch (const BackupReadError& error) {
        return [error] { return error.message(); };
    } catch (const ConversationPDF::Error& error) {
        return [message = error.message()] { return message; };
    } catch (...) {
        return [] { return ConversationError::unreadable().message(); };
    }
}

QString messageLine(const ChatMessage& message)
{
    return (message.date.isValid() ? Localizer::formatDateTime(message.date) : L("date inconnue")) +
           QStringLiteral("  ") + L("%@ : %@", message.sender, message.text);
}

} // namespace

ConversationsModel::ConversationsModel(Services services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_job(new Job(this))
    , m_scanJob(new Job(this))
    , m_chats(new ChatList(this))
    , m_saved(new SavedConversations(services, ConversationFiles::folder(), this))
    , m_folder(ConversationFiles::folder())
{
    connect(m_job, &Job::progressChanged, this, [this](qint64 done, qint64 total) {
        const QLocale locale = Localizer::locale();
        setBusy(L("Conversation %@ sur %@…", locale.toString(std::min(done + 1, total)), locale.toString(total)),
                total > 0 ? double(done) / double(total) : -1);
    });
    connect(m_job, &Job::failed, this, [this] {
        setBusy({});
        m_chatsLoading = false;
        Q_EMIT chatsChanged();
        setErrorNotice([] { return L("Une erreur inattendue a interrompu l'opération."); });
    });
    connect(m_saved, &SavedConversations::failed, this, [this](const Text& text) { setErrorNotice(text); });
    // A source chosen while the last one was still being read: its turn comes when that work ends.
    connect(m_job, &Job::runningChanged, this, [this] {
        if (!m_job->isRunning() && m_pendingLoad)
            loadFrom(std::exchange(m_pendingLoad, nullptr));
    });
}

ConversationsModel::~ConversationsModel() = default;

// Sources

QList<ConversationsModel::Source> ConversationsModel::availableSources()
{
    QList<Source> sources{Backup};
#ifdef Q_OS_MACOS
    // The Mac's own stores, where Messages or WhatsApp is in use.
    if (QFileInfo::exists(QDir::homePath() + QStringLiteral("/Library/Messages/chat.db")) ||
        QFileInfo::exists(QDir::homePath() +
                          QStringLiteral("/Library/Group Containers/group.net.whatsapp.WhatsApp.shared/"
                                         "ChatStorage.sqlite")))
        sources.append(ThisComputer);
#endif
    sources << DatabaseFile << WhatsAppExport << TelegramExport << Pasted;
    return sources;
}

QString ConversationsModel::sourceTitle(Source source)
{
    switch (source) {
    case Backup: return L("Une sauvegarde d'iPhone");
    case ThisComputer: return L("Cet ordinateur");
    case DatabaseFile: return L("Un fichier de messages");
    case WhatsAppExport: return L("Un export WhatsApp");
    case TelegramExport: return L("Un export Telegram");
    case Pasted: return L("Un texte collé");
    case NoSource: break;
    }
    return {};
}

QString ConversationsModel::sourceExplanation(Source source)
{
    switch (source) {
    case Backup:
        return L("Les Messages et WhatsApp d'une sauvegarde de ton iPhone, même protégée par un mot de passe.");
    case ThisComputer: return L("Les conversations de Messages et de WhatsApp de cet ordinateur, lues sur une copie.");
    case DatabaseFile:
        return L("Un fichier %@ copié d'un téléphone ou d'une sauvegarde.",
                 QStringLiteral("sms.db, chat.db, ChatStorage.sqlite"));
    case WhatsAppExport: return L("Le fichier .txt ou .zip que WhatsApp crée avec « Exporter la discussion ».");
    case TelegramExport:
        return L("Le fichier %@ de Telegram Desktop (exporter l'historique au format JSON).",
                 QStringLiteral("result.json"));
    case Pasted: return L("Une conversation copiée d'ailleurs et collée ici.");
    case NoSource: break;
    }
    return {};
}

QString ConversationsModel::sourceName() const
{
    return m_source == Pasted ? L("Texte collé") : m_sourceName;
}

void ConversationsModel::setSource(Source source, std::shared_ptr<ConversationSource> reader, QString name)
{
    m_job->cancel();
    m_pendingLoad = nullptr;
    ++m_generation;
    if (source != Backup)
        m_session.reset();
    m_source = source;
    m_reader = std::move(reader);
    m_sourceName = std::move(name);
    m_chats->setChats({});
    m_chatsMessage = nullptr;
    m_chosen = -1;
    m_transcript.reset();
    m_preview = nullptr;
    m_senders.clear();
    m_owner.clear();
    m_title.clear();
    // What was said of the last source's PDF is no longer about what the page shows.
    m_notice = nullptr;
    m_errorNotice = nullptr;
    m_lastPdf.clear();
    m_pdfFingerprint.clear();
    Q_EMIT sourceChanged();
    Q_EMIT chatsChanged();
    Q_EMIT previewChanged();
    Q_EMIT noticeChanged();
}

void ConversationsModel::closeSource()
{
    m_session.reset();
    setSource(NoSource, nullptr, {});
}

void ConversationsModel::openFile(int source, const QString& path)
{
    if (path.isEmpty())
        return;
    const auto kind = Source(source);
    std::function<std::shared_ptr<ConversationSource>()> make;
    switch (kind) {
    case DatabaseFile:
        make = [path] {
            return std::shared_ptr<ConversationSource>(
                QFileInfo(path).fileName().startsWith(QLatin1StringView("ChatStorage"))
                    ? ConversationSource::whatsAppDatabase(path)
                    : ConversationSource::messagesDatabase(path));
        };
        break;
    case WhatsAppExport:
        make = [path] {
            return std::shared_ptr<ConversationSource>(WhatsAppArchive::looksLikeZip(path)
                                                           ? ConversationSource::whatsAppArchive(path)
                                                           : ConversationSource::whatsAppExport(path));
        };
        break;
    case TelegramExport:
        make = [path] { return std::shared_ptr<ConversationSource>(ConversationSource::telegramExport(path)); };
        break;
    default: return;
    }
    setSource(kind, nullptr, QFileInfo(path).fileName());
    loadFrom(std::move(make));
}

void ConversationsModel::openPasted(const QString& text)
{
    setSource(Pasted, nullptr, {});
    loadFrom([text] { return std::shared_ptr<ConversationSource>(ConversationSource::pastedText(text)); });
}

void ConversationsModel::openThisComputer(int store)
{
    const bool whatsApp = BackupChatStore(store) == BackupChatStore::WhatsApp;
    const QString path =
        whatsApp ? QDir::homePath() +
                       QStringLiteral("/Library/Group Containers/group.net.whatsapp.WhatsApp.shared/ChatStorage.sqlite")
                 : QDir::homePath() + QStringLiteral("/Library/Messages/chat.db");
    setSource(ThisComputer, nullptr,
              whatsApp ? nuvrel::title(ConvSource::WhatsApp) : nuvrel::title(ConvSource::Messages));
    m_backupStore = BackupChatStore(store);
    // Read through the readers' private copy, as every database is: never opened in place.
    loadFrom([path, whatsApp] {
        return std::shared_ptr<ConversationSource>(whatsApp ? ConversationSource::whatsAppDatabase(path)
                                                            : ConversationSource::messagesDatabase(path));
    });
}

void ConversationsModel::loadFrom(std::function<std::shared_ptr<ConversationSource>()> make)
{
    m_chatsLoading = true;
    Q_EMIT chatsChanged();
    if (m_job->isRunning()) {
        m_job->cancel();
        m_pendingLoad = std::move(make);
        return;
    }
    const bool started = startJob(
        [make = std::move(make)](JobContext&) {
            Listing listing;
            try {
                // An export is unpacked or parsed here, on the worker, when it is first listed.
                listing.source = make();
                listing.chats = listing.source->listChats();
                if (listing.chats.isEmpty())
                    listing.message = [] { return L("Aucune conversation trouvée dans cette base."); };
            } catch (...) {
                listing.message = failureText(std::current_exception());
            }
            return listing;
        },
        [this, generation = m_generation](Listing listing) {
            if (generation == m_generation)
                showListing(std::move(listing));
        });
    if (started)
        setBusy(L("Lecture des conversations…"));
}

void ConversationsModel::showListing(Listing listing)
{
    setBusy({});
    m_chatsLoading = false;
    m_reader = std::move(listing.source);
    m_chatsMessage = std::move(listing.message);
    // Ticks are for choosing several: a source of one conversation has none.
    m_chats->setCheckable(listing.chats.size() > 1);
    m_chats->setChats(std::move(listing.chats));
    Q_EMIT chatsChanged();
    // One conversation (an export, pasted text): it is the one chosen.
    if (m_chats->chats().size() == 1)
        choose(m_chats->chats().constFirst().id);
}

// Backups

void ConversationsModel::scanBackups()
{
    if (m_scanJob->isRunning())
        return;
    m_backupsScanning = true;
    Q_EMIT backupsChanged();
    m_scanJob->start([](JobContext&) { return BackupLocator::scan(); },
                     [this](const BackupScan& scan) {
                         m_backups = scan.backups();
                         m_backupsScanning = false;
                         Q_EMIT backupsChanged();
                     });
}

void ConversationsModel::openBackup(int index)
{
    if (index < 0 || index >= m_backups.size())
        return;
    const PhoneBackup backup = m_backups.at(index);
    setSource(Backup, nullptr, backup.deviceName);
    m_session = std::make_unique<BackupSession>(backup, m_services);
    connect(m_session.get(), &BackupSession::phaseChanged, this, [this] {
        if (m_session->phase() == BackupSession::Phase::Ready)
            loadBackupStore();
        Q_EMIT sourceChanged();
    });
    connect(m_session.get(), &BackupSession::noticeRaised, this,
            [this](const Text& text, bool isError) { isError ? setErrorNotice(text) : setNotice(text); });
    m_session->start();
    Q_EMIT sourceChanged();
}

void ConversationsModel::setBackupStore(int store)
{
    const auto chosen = BackupChatStore(std::clamp(store, 0, 1));
    if (chosen == m_backupStore)
        return;
    m_backupStore = chosen;
    Q_EMIT sourceChanged();
    if (m_source == Backup && m_session && m_session->phase() == BackupSession::Phase::Ready) {
        setSource(Backup, nullptr, m_sourceName);
        loadBackupStore();
    }
}

void ConversationsModel::loadBackupStore()
{
    std::shared_ptr<const IPhoneBackupReader> reader = m_session->reader();
    const BackupCatalogue catalogue = m_session->catalogue();
    const BackupChatStore store = m_backupStore;
    if (!chatStoreEntry(catalogue, store)) {
        m_chatsMessage = [] { return L("Cette sauvegarde ne contient pas ces conversations."); };
        Q_EMIT chatsChanged();
        return;
    }
    loadFrom([reader, catalogue, store]() -> std::shared_ptr<ConversationSource> {
        const QString folder =
            QDir(reader->tempDir())
                .filePath(store == BackupChatStore::WhatsApp ? QStringLiteral("conversations/whatsapp")
                                                             : QStringLiteral("conversations/messages"));
        const QString database = extractChatStore(*reader, catalogue, store, folder).value_or(QString());
        return store == BackupChatStore::WhatsApp ? ConversationSource::whatsAppDatabase(database)
                                                  : ConversationSource::messagesDatabase(database);
    });
}

// One conversation

void ConversationsModel::choose(qint64 chatID)
{
    const QList<MessagesChatInfo>& chats = m_chats->chats();
    const auto chat = std::find_if(chats.cbegin(), chats.cend(),
                                   [chatID](const MessagesChatInfo& info) { return info.id == chatID; });
    if (!m_reader || chat == chats.cend() || m_job->isRunning())
        return;
    m_chosen = chatID;
    m_transcript.reset();
    m_preview = nullptr;
    m_senders.clear();
    m_owner.clear();
    m_title = chat->title;
    Q_EMIT previewChanged();
    struct Read
    {
        std::shared_ptr<const ChatTranscript> transcript;
        Text error;
    };
    const bool started = startJob(
        [reader = m_reader, info = *chat](JobContext&) -> Read {
            try {
                return {std::make_shared<const ChatTranscript>(reader->transcript(info)), {}};
            } catch (...) {
                return {nullptr, failureText(std::current_exception())};
            }
        },
        [this, chatID](const Read& read) {
            setBusy({});
            if (chatID != m_chosen)
                return;
            m_transcript = read.transcript;
            if (read.error)
                m_preview = read.error;
            else
                m_senders = sendersOf(*m_transcript);
            renderPreview();
        });
    if (started)
        setBusy(L("Lecture de la conversation…"));
}

void ConversationsModel::setOwner(const QString& owner)
{
    if (owner == m_owner || (!owner.isEmpty() && !m_senders.contains(owner)))
        return;
    m_owner = owner;
    renderPreview();
}

void ConversationsModel::setTitle(const QString& title)
{
    if (title == m_title)
        return;
    m_title = title;
    Q_EMIT previewChanged();
}

void ConversationsModel::setPeriod(int period, const QDate& from, const QDate& to)
{
    m_period = Period(std::clamp(period, int(Everything), int(Days)));
    m_from = m_period == Days ? from : QDate();
    m_to = m_period == Days ? to : QDate();
    if (m_from.isValid() && m_to.isValid() && m_from > m_to)
        std::swap(m_from, m_to);
    Q_EMIT periodChanged();
    renderPreview();
}

ChatPeriod ConversationsModel::chatPeriod() const
{
    switch (m_period) {
    case LastThirtyDays: return ChatPeriod::lastDays(30, QDateTime::currentDateTime());
    case Days: return ChatPeriod::localDays(m_from, m_to);
    case Everything: break;
    }
    return {};
}

void ConversationsModel::renderPreview()
{
    if (m_transcript) {
        // Worded when shown, so that it follows a change of language.
        m_preview = [transcript = m_transcript, owner = m_owner, period = chatPeriod()]() -> QString {
            try {
                const ChatTranscript shown = period.apply(withOwner(*transcript, owner));
                QStringList lines;
                const qsizetype count = std::min<qsizetype>(shown.messages.size(), previewLimit);
                lines.reserve(count + 1);
                for (qsizetype i = 0; i < count; ++i)
                    lines.append(messageLine(shown.messages[i]));
                if (const qsizetype more = shown.messages.size() - count; more > 0)
                    lines.append(
                        LN("… et %@ message(s) de plus dans le PDF.", more, Localizer::locale().toString(more)));
                return lines.join(u'\n');
            } catch (const ConversationError& error) {
                return error.message();
            }
        };
    }
    Q_EMIT previewChanged();
}

// Saving

QString ConversationsModel::pdfLabel() const
{
    if (m_source == Backup)
        return m_backupStore == BackupChatStore::WhatsApp ? L("WhatsApp (sauvegarde iPhone)")
                                                          : L("Messages (sauvegarde iPhone)");
    return m_reader ? m_reader->label() : QString();
}

void ConversationsModel::saveChosen()
{
    if (!m_transcript || m_job->isRunning())
        return;
    struct Saved
    {
        ConversationPDF::Result pdf;
        Text error;
    };
    const bool started = startJob(
        [reader = m_reader, transcript = m_transcript, owner = m_owner, period = chatPeriod(), title = m_title,
         label = pdfLabel(), folder = m_folder](JobContext&) -> Saved {
            try {
                ChatTranscript kept = period.apply(withOwner(*transcript, owner));
                if (!title.trimmed().isEmpty())
                    kept.title = title.trimmed();
                const QString destination = QDir(folder).filePath(ConversationFiles::fileName(kept.title));
                return {ConversationPDF::build(destination, kept, label), {}};
            } catch (...) {
                return {{}, failureText(std::current_exception())};
            }
        },
        [this](const Saved& saved) {
            setBusy({});
            if (saved.error) {
                setErrorNotice(saved.error);
                return;
            }
            setNotice([pdf = QFileInfo(saved.pdf.pdf).fileName(), side = QFileInfo(saved.pdf.sideFile).fileName()] {
                return L("PDF créé : %@. Son empreinte SHA-256, ci-dessous, est aussi enregistrée dans « %@ », à côté "
                         "du PDF : garde les deux ensemble.",
                         pdf, side);
            });
            // After setNotice, which clears them.
            m_lastPdf = saved.pdf.pdf;
            m_pdfFingerprint = saved.pdf.pdfFingerprint;
            Q_EMIT noticeChanged();
            m_saved->refresh();
        });
    if (started)
        setBusy(L("Création du PDF…"));
}

void ConversationsModel::saveTicked()
{
    const QList<MessagesChatInfo> chats = m_chats->ticked();
    if (!m_reader || chats.isEmpty() || m_job->isRunning())
        return;
    const bool started = startJob(
        [reader = m_reader, chats, period = chatPeriod(), label = pdfLabel(),
         folder = m_folder](JobContext& context) -> ConversationFiles::SavedBatch {
            ConversationFiles::SavedBatch batch;
            batch.folder = folder;
            for (qsizetype i = 0; i < chats.size(); ++i) {
                if (context.isCancelled()) {
                    batch.stopped = true;
                    break;
                }
                context.progress(i, chats.size());
                batch.record([&] {
                    const ChatTranscript kept = period.apply(reader->transcript(chats[i]));
                    ConversationPDF::build(QDir(folder).filePath(ConversationFiles::fileName(kept.title)), kept, label);
                });
            }
            return batch;
        },
        [this](const ConversationFiles::SavedBatch& batch) {
            setBusy({});
            Text text = [batch] { return batch.summary(); };
            batch.saved == 0 && batch.failed > 0 ? setErrorNotice(std::move(text)) : setNotice(std::move(text));
            m_lastPdf = batch.folder;
            Q_EMIT noticeChanged();
            m_saved->refresh();
        },
        true);
    if (started)
        setBusy(L("Conversation %@ sur %@…", QStringLiteral("1"), Localizer::locale().toString(chats.size())), 0);
}

void ConversationsModel::stop()
{
    if (canStop())
        m_job->cancel();
}

bool ConversationsModel::canStop() const
{
    return m_stoppable && m_job->isRunning() && !m_job->isCancelled();
}

void ConversationsModel::openLastPdf()
{
    if (!m_lastPdf.isEmpty() && !m_services.workspace.open(m_lastPdf))
        setErrorNotice(
            [name = QFileInfo(m_lastPdf).fileName()] { return L("Aucune application n'a pu ouvrir « %@ ».", name); });
}

void ConversationsModel::revealLastPdf()
{
    if (!m_lastPdf.isEmpty())
        m_services.workspace.reveal(m_lastPdf);
}

void ConversationsModel::copyPdfFingerprint()
{
    if (!m_pdfFingerprint.isEmpty())
        m_services.clipboard.copyText(m_pdfFingerprint);
}

void ConversationsModel::setFolder(const QString& folder)
{
    m_folder = folder;
    m_saved->setFolder(folder);
}

// State

void ConversationsModel::setBusy(const QString& busy, double progress)
{
    m_busy = busy;
    m_progress = progress;
    Q_EMIT busyChanged();
}

void ConversationsModel::setNotice(Text notice)
{
    m_notice = std::move(notice);
    m_errorNotice = nullptr;
    m_lastPdf.clear();
    m_pdfFingerprint.clear();
    Q_EMIT noticeChanged();
}

void ConversationsModel::setErrorNotice(Text notice)
{
    m_errorNotice = std::move(notice);
    m_notice = nullptr;
    m_lastPdf.clear();
    m_pdfFingerprint.clear();
    Q_EMIT noticeChanged();
}

template <typename Body, typename Done>
bool ConversationsModel::startJob(Body body, Done done, bool stoppable)
{
    if (!m_job->start(std::move(body), std::move(done)))
        return false;
    m_stoppable = stoppable;
    Q_EMIT busyChanged();
    return true;
}

} // namespace nuvrel
