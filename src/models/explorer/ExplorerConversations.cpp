// The explorer's conversations tab: the Messages or WhatsApp database taken out of the backup, its
// conversations listed and searched, and one or all of them saved as PDFs.

#include "engines/backup/BackupReadError.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationPdf.h"
#include "engines/conversations/ConversationSource.h"
#include "l10n/L.h"
#include "models/explorer/ExplorerModel.h"
#include "platform/Workspace.h"
#include "sessions/conversations/BackupChats.h"
#include "sessions/conversations/ConversationFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

namespace nuvrel {

namespace {

std::shared_ptr<const ConversationSource> openSource(int source, const QString& database)
{
    return source == ExplorerModel::WhatsAppSource ? ConversationSource::whatsAppDatabase(database)
                                                   : ConversationSource::messagesDatabase(database);
}

} // namespace

// Conversations

void ExplorerModel::setConvSource(int source)
{
    source = std::clamp(source, int(MessagesSource), int(WhatsAppSource));
    if (source == m_convSource)
        return;
    m_convSource = source;
    Q_EMIT convSourceChanged();
    m_chats->setChats({});
    m_chatsMessage = nullptr;
    Q_EMIT chatsChanged();
    if (phase() == Phase::Ready)
        loadChats();
}

QString ExplorerModel::sourceLabel(int source) const
{
    return source == WhatsAppSource ? L("WhatsApp (sauvegarde iPhone)") : L("Messages (sauvegarde iPhone)");
}

void ExplorerModel::loadChats()
{
    if (!m_reader || m_chatsLoading)
        return;
    if (workRunning()) {
        m_chatsPending = true; // read when the running job ends
        return;
    }
    const int source = m_convSource;
    const BackupCatalogue& catalogue = m_session->catalogue();
    const BackupChatStore store = source == WhatsAppSource ? BackupChatStore::WhatsApp : BackupChatStore::Messages;
    m_chats->setChats({});
    if (!chatStoreEntry(catalogue, store)) {
        m_chatsMessage = [] { return L("Cette sauvegarde ne contient pas ces conversations."); };
        Q_EMIT chatsChanged();
        return;
    }
    struct Outcome
    {
        std::shared_ptr<const ConversationSource> reading;
        QList<MessagesChatInfo> chats;
        Text message; ///< shown instead of a list
        Text error;
    };
    std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
    std::shared_ptr<const ConversationSource> known = m_chatSources.value(source);
    const bool started = startJob(
        [reader, catalogue, store, source, known](JobContext&) -> Outcome {
            Outcome outcome;
            try {
                // Taken out of the backup once per session; its private copy is made once too.
                outcome.reading = known;
                QString database;
                if (!outcome.reading) {
                    const QString folder =
                        QDir(reader->tempDir())
                            .filePath(source == WhatsAppSource ? QStringLiteral("conversations/whatsapp")
                                                               : QStringLiteral("conversations/messages"));
                    database = extractChatStore(*reader, catalogue, store, folder).value_or(QString());
                    outcome.reading = openSource(source, database);
                }
                if (source == WhatsAppSource) {
                    outcome.chats = outcome.reading->listChats();
                    if (outcome.chats.isEmpty())
                        outcome.message = [] { return L("Aucune conversation trouvée dans cette base."); };
                } else {
                    outcome.chats = outcome.reading->listChats();
                    if (outcome.chats.isEmpty()) {
                        const qint64 messages = outcome.reading->messageCount();
                        if (messages > 0)
                            outcome.message = [messages] {
                                return LN("La base contient %@ message(s) mais Nuvrel n'a pas réussi à les regrouper "
                                          "(format très ancien). Dis-le moi, je l'ajoute.",
                                          messages, Localizer::locale().toString(messages));
                            };
                        else
                            outcome.message = [] {
                                return L("Cette sauvegarde ne contient aucun message. Si « Messages dans iCloud » est "
                                         "activé sur l'iPhone, les messages restent dans iCloud et ne sont pas dans la "
                                         "sauvegarde.");
                            };
                    }
                }
            } catch (const ConversationError& error) {
                outcome.error = [error] { return error.message(); };
            } catch (const BackupReadError& error) {
                outcome.error = [error] { return error.message(); };
            } catch (const std::exception&) {
                outcome.error = [] { return ConversationError::unreadable().message(); };
            }
            return outcome;
        },
        [this, source](const Outcome& outcome) {
            if (outcome.reading)
                m_chatSources.insert(source, outcome.reading);
            if (source != m_convSource) { // the user switched meanwhile: that source's turn is queued
                m_chatsLoading = false;
                Q_EMIT chatsChanged();
                loadChats();
                return;
            }
            m_chatsLoading = false;
            m_chats->setChats(outcome.chats);
            m_chatsMessage = outcome.message;
            if (outcome.error)
                // An explicit QString: a deduced type would be a builder holding dead temporaries.
                m_chatsMessage = [error = outcome.error]() -> QString {
                    return L("Impossible de lire les conversations : ") + error();
                };
            Q_EMIT chatsChanged();
            if (outcome.error)
                setErrorNotice(m_chatsMessage);
        });
    if (!started)
        return;
    m_chatsLoading = true;
    m_chatsMessage = nullptr;
    Q_EMIT chatsChanged();
}

void ExplorerModel::createChatPDF(qint64 chatID)
{
    const std::shared_ptr<const ConversationSource> reading = m_chatSources.value(m_convSource);
    const QList<MessagesChatInfo>& chats = m_chats->chats();
    const auto chat = std::find_if(chats.cbegin(), chats.cend(),
                                   [chatID](const MessagesChatInfo& info) { return info.id == chatID; });
    if (!reading || chat == chats.cend() || workRunning())
        return;
    const int source = m_convSource;
    const QString label = sourceLabel(source);
    const MessagesChatInfo& info = *chat; // copied into the task

    struct Outcome
    {
        ConversationPDF::Result pdf;
        Text error;
    };
    const bool started = startJob(
        [reading, label, info](JobContext&) -> Outcome {
            try {
                const ChatTranscript transcript = reading->transcript(info);
                const QString destination =
                    QDir(ConversationFiles::folder()).filePath(ConversationFiles::fileName(info.title));
                return {ConversationPDF::build(destination, transcript, label), {}};
            } catch (const ConversationPDF::Error& error) {
                return {{}, [message = error.message()] { return message; }};
            } catch (const ConversationError& error) {
                return {{}, [error] { return L("Impossible de créer le PDF : ") + error.message(); }};
            } catch (const std::exception&) {
                return {{},
                        [] { return L("Impossible de créer le PDF : ") + ConversationError::unreadable().message(); }};
            }
        },
        [this](const Outcome& outcome) {
            setBusy({});
            if (outcome.error) {
                setErrorNotice(outcome.error); // says what failed and why, once
                return;
            }
            m_lastFolder = QFileInfo(outcome.pdf.pdf).absolutePath();
            Q_EMIT lastFolderChanged();
            setNotice([pdf = QFileInfo(outcome.pdf.pdf).fileName(),
                       side = QFileInfo(outcome.pdf.sideFile).fileName()]() -> QString {
                return L("PDF créé : %@. Son empreinte SHA-256, ci-dessous, est aussi enregistrée dans « %@ », à côté "
                         "du PDF : garde les deux ensemble.",
                         pdf, side) +
                       u' ' +
                       L("Tu le retrouveras toujours dans « Garder une conversation », section « Mes conversations "
                         "enregistrées ».");
            });
            // After setNotice, which clears it.
            m_pdfFingerprint = outcome.pdf.pdfFingerprint;
            Q_EMIT noticeChanged();
            m_session->services().workspace.open(outcome.pdf.pdf);
        });
    if (started)
        setBusy(L("Création du PDF…"));
}

void ExplorerModel::createAllChatPDFs()
{
    const std::shared_ptr<const ConversationSource> reading = m_chatSources.value(m_convSource);
    const QList<MessagesChatInfo> chats = m_chats->visible();
    if (!reading || chats.isEmpty() || workRunning())
        return;
    const QString label = sourceLabel(m_convSource);

    const bool started = startJob(
        [reading, label, chats](JobContext& context) -> ConversationFiles::SavedBatch {
            ConversationFiles::SavedBatch batch;
            batch.folder = ConversationFiles::folder();
            if (!QDir().mkpath(batch.folder)) {
                batch.failed = int(chats.size());
                return batch;
            }
            for (qsizetype i = 0; i < chats.size(); ++i) {
                if (context.isCancelled()) {
                    batch.stopped = true;
                    break;
                }
                context.progress(i, chats.size());
                const MessagesChatInfo& info = chats[i];
                batch.record([&] {
                    const ChatTranscript transcript = reading->transcript(info);
                    ConversationPDF::build(QDir(batch.folder).filePath(ConversationFiles::fileName(info.title)),
                                           transcript, label);
                });
            }
            return batch;
        },
        [this](const ConversationFiles::SavedBatch& batch) {
            setBusy({});
            Text text = [batch] {
                QString line = batch.summary();
                if (batch.saved > 0)
                    line += u' ' + L("Retrouve-les dans « Garder une conversation », section « Mes conversations "
                                     "enregistrées ».");
                return line;
            };
            m_lastFolder = batch.folder;
            Q_EMIT lastFolderChanged();
            if (batch.saved == 0 && batch.failed > 0)
                setErrorNotice(std::move(text));
            else
                setNotice(std::move(text));
        },
        [](qint64 done, qint64 all) {
            const QLocale locale = Localizer::locale();
            return L("Conversation %@ sur %@…", locale.toString(done + 1), locale.toString(all));
        });
    if (!started)
        return;
    m_progressTotal = chats.size();
    setBusy(L("Conversation %@ sur %@…", QStringLiteral("1"), Localizer::locale().toString(chats.size())), 0);
}

} // namespace nuvrel
