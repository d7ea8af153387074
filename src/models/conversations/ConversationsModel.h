#pragma once

#include "engines/backup/PhoneBackup.h"
#include "engines/conversations/ChatFilters.h"
#include "engines/conversations/ChatRecords.h"
#include "platform/Services.h"
#include "sessions/backup/BackupSession.h"
#include "sessions/conversations/BackupChats.h"
#include "sessions/conversations/ChatList.h"

#include <QDate>
#include <QObject>

#include <functional>
#include <memory>

namespace nuvrel {

class ConversationSource;
class IPhoneBackupReader;
class Job;
class JobContext;
class SavedConversations;

/// The conversations page: one conversation, or several, kept as fingerprinted PDFs from wherever they
/// are. A source is chosen (an iPhone backup, this computer's own stores where they exist, a database
/// file, a WhatsApp or Telegram export, pasted text), its conversations listed and searched, one
/// previewed as it will print, with the period and the owner chosen; then one saved, or the ticked
/// ones, into the conversations folder. Beside it, the PDFs saved there and their state.
class ConversationsModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int source READ source NOTIFY sourceChanged)
    Q_PROPERTY(QString sourceName READ sourceName NOTIFY sourceChanged)
    Q_PROPERTY(int backupStore READ backupStore WRITE setBackupStore NOTIFY sourceChanged)
    Q_PROPERTY(bool chatsLoading READ chatsLoading NOTIFY chatsChanged)
    Q_PROPERTY(QString chatsMessage READ chatsMessage NOTIFY chatsChanged)
    Q_PROPERTY(qint64 chosenChat READ chosenChat NOTIFY previewChanged)
    Q_PROPERTY(QString preview READ preview NOTIFY previewChanged)
    Q_PROPERTY(QStringList senders READ senders NOTIFY previewChanged)
    Q_PROPERTY(QString owner READ owner WRITE setOwner NOTIFY previewChanged)
    Q_PROPERTY(QString title READ title WRITE setTitle NOTIFY previewChanged)
    Q_PROPERTY(int period READ period NOTIFY periodChanged)
    Q_PROPERTY(QDate periodFrom READ periodFrom NOTIFY periodChanged)
    Q_PROPERTY(QDate periodTo READ periodTo NOTIFY periodChanged)
    Q_PROPERTY(QString busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(double progress READ progress NOTIFY busyChanged)
    Q_PROPERTY(bool canStop READ canStop NOTIFY busyChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(QString errorNotice READ errorNotice NOTIFY noticeChanged)
    Q_PROPERTY(QString lastPdf READ lastPdf NOTIFY noticeChanged)
    Q_PROPERTY(QString pdfFingerprint READ pdfFingerprint NOTIFY noticeChanged)

public:
    enum Source { NoSource, Backup, ThisComputer, DatabaseFile, WhatsAppExport, TelegramExport, Pasted };
    Q_ENUM(Source)
    enum Period { Everything, LastThirtyDays, Days };
    Q_ENUM(Period)
    /// The messages a preview shows: enough to judge, never a whole long conversation at once.
    static constexpr int previewLimit = 200;

    explicit ConversationsModel(Services services, QObject* parent = nullptr);
    ~ConversationsModel() override;

    /// The sources this computer offers, in the page's order: this computer's own stores only where
    /// they exist (macOS).
    static QList<Source> availableSources();
    static QString sourceTitle(Source source);
    /// One line that says what the source is and where it comes from.
    static QString sourceExplanation(Source source);

    Source source() const { return m_source; }
    /// The file, the backup or "Texte collé" the conversations come from.
    QString sourceName() const;

    // Choosing a source.
    /// Back to no source: what was open is let go (a backup's temporary copies with it).
    Q_INVOKABLE void closeSource();
    /// A database file (sms.db, chat.db, ChatStorage.sqlite), a WhatsApp export (.txt or .zip) or a
    /// Telegram one (result.json).
    Q_INVOKABLE void openFile(int source, const QString& path);
    Q_INVOKABLE void openPasted(const QString& text);
    /// The Messages or WhatsApp store of this computer, read through a private copy.
    Q_INVOKABLE void openThisComputer(int store);
    /// The backups found in the backups folder, scanned off the GUI thread.
    Q_INVOKABLE void scanBackups();
    const QList<PhoneBackup>& backups() const { return m_backups; }
    bool backupsScanning() const { return m_backupsScanning; }
    /// Opens a backup of backups(): its password asked when it is encrypted, then its conversations.
    Q_INVOKABLE void openBackup(int index);
    /// The open backup's session, for the password card; null for other sources.
    BackupSession* backupSession() const { return m_session.get(); }
    int backupStore() const { return int(m_backupStore); }
    void setBackupStore(int store);

    // The conversations.
    ChatList& chatList() const { return *m_chats; }
    bool chatsLoading() const { return m_chatsLoading; }
    QString chatsMessage() const { return m_chatsMessage ? m_chatsMessage() : QString(); }
    /// Reads one conversation for its preview and its senders.
    Q_INVOKABLE void choose(qint64 chatID);
    qint64 chosenChat() const { return m_chosen; }
    QString preview() const { return m_preview ? m_preview() : QString(); }
    QStringList senders() const { return m_senders; }
    /// The sender whose messages are the owner's ("Moi"); empty: as the source says.
    QString owner() const { return m_owner; }
    void setOwner(const QString& owner);
    /// The chosen conversation's title; the user may change it for pasted text.
    QString title() const { return m_title; }
    void setTitle(const QString& title);

    int period() const { return int(m_period); }
    QDate periodFrom() const { return m_from; }
    QDate periodTo() const { return m_to; }
    Q_INVOKABLE void setPeriod(int period, const QDate& from = {}, const QDate& to = {});
    ChatPeriod chatPeriod() const;

    // Saving.
    Q_INVOKABLE void saveChosen();
    /// Every ticked conversation, one after another, with progress; stop() keeps those done.
    Q_INVOKABLE void saveTicked();
    Q_INVOKABLE void stop();
    QString busy() const { return m_busy; }
    double progress() const { return m_progress; }
    bool canStop() const;
    QString notice() const { return m_notice ? m_notice() : QString(); }
    QString errorNotice() const { return m_errorNotice ? m_errorNotice() : QString(); }
    /// The PDF or the folder the last save wrote to.
    QString lastPdf() const { return m_lastPdf; }
    QString pdfFingerprint() const { return m_pdfFingerprint; }
    Q_INVOKABLE void openLastPdf();
    Q_INVOKABLE void revealLastPdf();
    Q_INVOKABLE void copyPdfFingerprint();

    /// « Mes conversations enregistrées ».
    SavedConversations& saved() const { return *m_saved; }

    /// Where PDFs go: Documents/Nuvrel/Conversations unless set (tests).
    void setFolder(const QString& folder);
    QString folder() const { return m_folder; }

Q_SIGNALS:
    void sourceChanged();
    void backupsChanged();
    void chatsChanged();
    void previewChanged();
    void periodChanged();
    void busyChanged();
    void noticeChanged();

private:
    using Text = BackupSession::Text;

    /// What a listing job hands back: the source it opened, its conversations, or why there are none.
    struct Listing
    {
        std::shared_ptr<ConversationSource> source;
        QList<MessagesChatInfo> chats;
        Text message; ///< shown instead of a list
    };

    void setSource(Source source, std::shared_ptr<ConversationSource> reader, QString name);
    /// Opens a source with `make` on a worker, then lists its conversations.
    void loadFrom(std::function<std::shared_ptr<ConversationSource>()> make);
    void showListing(Listing listing);
    void loadBackupStore();
    QString pdfLabel() const;
    void renderPreview();
    void setBusy(const QString& busy, double progress = -1);
    void setNotice(Text notice);
    void setErrorNotice(Text notice);
    template <typename Body, typename Done>
    bool startJob(Body body, Done done, bool stoppable = false);

    Services m_services;
    Job* m_job;     ///< listing, reading, saving: one at a time
    Job* m_scanJob; ///< the backups folder
    Source m_source = NoSource;
    quint64 m_generation = 0; ///< counts the sources opened: a listing of an earlier one is dropped
    std::function<std::shared_ptr<ConversationSource>()> m_pendingLoad; ///< waits for the running job
    QString m_sourceName;
    std::shared_ptr<ConversationSource> m_reader;
    QList<PhoneBackup> m_backups;
    bool m_backupsScanning = false;
    std::unique_ptr<BackupSession> m_session;
    BackupChatStore m_backupStore = BackupChatStore::Messages;
    ChatList* m_chats;
    bool m_chatsLoading = false;
    Text m_chatsMessage;
    qint64 m_chosen = -1;
    std::shared_ptr<const ChatTranscript> m_transcript; ///< as read, before owner and period
    Text m_preview;
    QStringList m_senders;
    QString m_owner;
    QString m_title;
    Period m_period = Everything;
    QDate m_from;
    QDate m_to;
    QString m_busy;
    double m_progress = -1;
    bool m_stoppable = false;
    Text m_notice;
    Text m_errorNotice;
    QString m_lastPdf;
    QString m_pdfFingerprint;
    SavedConversations* m_saved;
    QString m_folder;
};

} // namespace nuvrel
