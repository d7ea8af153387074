#pragma once

#include "engines/backup/BackupCatalogue.h"
#include "engines/backup/BackupEntry.h"
#include "engines/backup/BackupReadError.h"
#include "engines/backup/Extraction.h"
#include "engines/backup/PhoneBackup.h"
#include "engines/conversations/ChatRecords.h"
#include "ground/Job.h"
#include "platform/Services.h"

#include <QCache>
#include <QDateTime>
#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace nuvrel {

class IPhoneBackupReader;
class SecretStore;
class Workspace;

/// The explorer of one backup: asks for its password, opens it in the background, and offers its camera
/// roll, its files by domain and folder, and its conversations for extraction, opening and PDF making.
/// Everything runs on the GUI thread except opening, thumbnails, extraction and conversation work, which
/// run as one job at a time (thumbnails beside it) on the application's pool and publish back. Nothing
/// waits for that work: destroyed, the model cancels it and lets it go.
/// Optional texts are empty when absent.
class ExplorerModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(nuvrel::ExplorerModel::Phase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(QString failureMessage READ failureMessage NOTIFY phaseChanged)
    Q_PROPERTY(QString password READ password WRITE setPassword NOTIFY passwordChanged)
    Q_PROPERTY(QList<nuvrel::BackupPhoto> photos READ photos NOTIFY contentsChanged)
    Q_PROPERTY(QList<nuvrel::DomainRow> domains READ domains NOTIFY contentsChanged)
    Q_PROPERTY(int tab READ tab WRITE setTab NOTIFY tabChanged)
    Q_PROPERTY(QSet<QString> selected READ selected NOTIFY selectedChanged)
    Q_PROPERTY(QString domain READ domain NOTIFY placeChanged)
    Q_PROPERTY(QStringList folder READ folder NOTIFY placeChanged)
    Q_PROPERTY(QList<nuvrel::FolderItem> items READ items NOTIFY placeChanged)
    Q_PROPERTY(QString busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(double progress READ progress NOTIFY busyChanged)
    Q_PROPERTY(bool canStop READ canStop NOTIFY busyChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(QString errorNotice READ errorNotice NOTIFY noticeChanged)
    Q_PROPERTY(QString lastFolder READ lastFolder NOTIFY lastFolderChanged)
    Q_PROPERTY(int shownPhotos READ shownPhotos NOTIFY shownPhotosChanged)
    Q_PROPERTY(int convSource READ convSource WRITE setConvSource NOTIFY convSourceChanged)
    Q_PROPERTY(QList<nuvrel::MessagesChatInfo> chats READ chats NOTIFY chatsChanged)
    Q_PROPERTY(bool chatsLoading READ chatsLoading NOTIFY chatsChanged)
    Q_PROPERTY(QString chatsMessage READ chatsMessage NOTIFY chatsChanged)
    Q_PROPERTY(QString chatQuery READ chatQuery WRITE setChatQuery NOTIFY chatQueryChanged)
    Q_PROPERTY(bool rememberPassword READ rememberPassword WRITE setRememberPassword NOTIFY passwordChanged)
    Q_PROPERTY(bool savedPassword READ savedPassword NOTIFY passwordChanged)

public:
    enum class Phase { AskPassword, Loading, Ready, Failed };
    Q_ENUM(Phase)

    enum Tab { PhotosTab = 0, FilesTab = 1, ConversationsTab = 2 };
    enum ConvSourceIndex { MessagesSource = 0, WhatsAppSource = 1 };

    static constexpr int photoPage = 600;
    static constexpr int chatListLimit = 300;
    static constexpr int thumbnailSide = 256;
    static constexpr qint64 defaultThumbnailCacheBytes = 96LL * 1024 * 1024;

    /// What the background opening hands back.
    struct LoadResult
    {
        std::shared_ptr<IPhoneBackupReader> reader;
        BackupCatalogue catalogue;
    };

    /// Starts at AskPassword for an encrypted backup, otherwise at Loading; start() begins the work.
    ExplorerModel(PhoneBackup backup, Services services, QObject* parent = nullptr);
    ~ExplorerModel() override;

    /// Opens a plain backup, or looks up the kept password of an encrypted one.
    void start();

    const PhoneBackup& backup() const { return m_backup; }
    Phase phase() const { return m_phase; }
    QString failureMessage() const { return m_failureMessage ? m_failureMessage() : QString(); }
    QString password() const { return m_password; }
    void setPassword(const QString& password);
    bool rememberPassword() const { return m_rememberPassword; }
    void setRememberPassword(bool remember);
    bool savedPassword() const { return m_savedPassword; }
    const QList<BackupPhoto>& photos() const { return m_photos; }
    const QList<DomainRow>& domains() const { return m_domains; }
    int tab() const { return m_tab; }
    void setTab(int tab);
    const QSet<QString>& selected() const { return m_selected; }
    QString domain() const { return m_domain; }
    const QStringList& folder() const { return m_folder; }
    const QList<FolderItem>& items() const { return m_items; }
    QString busy() const { return m_busy; }
    /// The running task's share done, 0 to 1; negative while it cannot be told.
    double progress() const { return m_progress; }
    /// A running extraction or batch of PDFs, which "Arrêter" stops after the file in hand.
    bool canStop() const { return m_stoppable && m_job->isRunning() && !m_job->isCancelled(); }
    /// Asks the running extraction or batch to stop; what is done is kept and reported.
    Q_INVOKABLE void stop();
    /// What is lost if the model goes now: the running work's progress, worded; empty when nothing
    /// runs. The page shows it when the user leaves during work.
    QString interruptionNotice() const;
    QString notice() const { return m_notice ? m_notice() : QString(); }
    QString errorNotice() const { return m_errorNotice ? m_errorNotice() : QString(); }
    QString lastFolder() const { return m_lastFolder; }
    int shownPhotos() const { return m_shownPhotos; }
    int convSource() const { return m_convSource; }
    void setConvSource(int source);
    const QList<MessagesChatInfo>& chats() const { return m_chats; }
    bool chatsLoading() const { return m_chatsLoading; }
    /// Why no list is shown: no database, no conversation, no message…
    QString chatsMessage() const { return m_chatsMessage ? m_chatsMessage() : QString(); }
    QString chatQuery() const { return m_chatQuery; }
    void setChatQuery(const QString& query);
    const std::optional<BackupEntry>& smsEntry() const { return m_smsEntry; }
    const std::optional<BackupEntry>& waEntry() const { return m_waEntry; }

    // Password and opening
    Q_INVOKABLE void openBackup();
    Q_INVOKABLE void keepPassword();
    Q_INVOKABLE void forgetPassword();
    /// Whether a proven password is known: one that opened the backup, or the one kept in the keychain.
    bool canPrintRescueSheet() const { return !m_provenPassword.isEmpty(); }
    /// Makes the recovery sheet of the proven password and opens it; returns its path, empty on failure.
    /// The sheet is deleted with the explorer.
    Q_INVOKABLE QString printRescueSheet();

    // Photos
    Q_INVOKABLE void toggleSelected(const QString& fileID);
    Q_INVOKABLE void clearSelection();
    Q_INVOKABLE void showMorePhotos();
    Q_INVOKABLE void extractSelectedPhotos(const QString& destination);
    Q_INVOKABLE void extractAllPhotos(const QString& destination);
    /// The grid's header line, or the explanation when the backup holds no photo.
    QString photosHeader() const;

    // Thumbnails: the cached picture, or a null image after asking for it; thumbnailReady tells when to
    // look again. A photo that cannot be decoded stays null and thumbnailFailed() says so.
    QImage thumbnail(const QString& fileID);
    bool thumbnailFailed(const QString& fileID) const { return m_thumbFailed.contains(fileID); }
    qint64 thumbnailCacheBytes() const { return m_thumbs.totalCost(); }
    qint64 thumbnailCacheLimit() const { return m_thumbs.maxCost(); }
    void setThumbnailCacheLimit(qint64 bytes) { m_thumbs.setMaxCost(bytes); }
    int thumbnailsDecoded() const { return m_thumbsDecoded; }

    // All files
    Q_INVOKABLE void openDomain(const QString& domain);
    Q_INVOKABLE void openFolder(const QString& name);
    /// Cuts the folder path back to `depth` components; a negative depth leaves the domain.
    Q_INVOKABLE void goUp(int depth);
    Q_INVOKABLE void extractCurrentFolder(const QString& destination);
    Q_INVOKABLE void openFile(const nuvrel::BackupEntry& entry);

    // Conversations
    Q_INVOKABLE void loadChats();
    /// The conversations matching the search, at most chatListLimit.
    QList<MessagesChatInfo> visibleChats() const;
    /// More conversations match than visibleChats() shows.
    bool chatsTruncated() const;
    Q_INVOKABLE void createChatPDF(qint64 chatID);
    Q_INVOKABLE void createAllChatPDFs();
    /// Where conversation PDFs are saved: Documents/Nuvrel/Conversations.
    static QString conversationsFolder();

    Q_INVOKABLE void revealLastFolder();

    /// A conversation's PDF file name: its title without separators or control characters, at most 80
    /// characters (never half an emoji), "Conversation.pdf" when nothing is left.
    static QString conversationFileName(const QString& title);

Q_SIGNALS:
    void phaseChanged();
    void passwordChanged();
    void contentsChanged();
    void tabChanged();
    void selectedChanged();
    void placeChanged();
    void busyChanged();
    void noticeChanged();
    void lastFolderChanged();
    void shownPhotosChanged();
    void convSourceChanged();
    void chatsChanged();
    void chatQueryChanged();
    void thumbnailReady(const QString& fileID);

private:
    // Texts are kept as the way to word them, so that they follow a change of language.
    using Text = std::function<QString()>;

    /// How a running job's progress is worded ("Extraction %@ sur %@…").
    using ProgressText = std::function<QString(qint64 done, qint64 total)>;

    void setPhase(Phase phase, Text failure = {});
    void setBusy(const QString& busy, double progress = -1);
    void setNotice(Text notice);
    void setErrorNotice(Text notice);
    void publish(LoadResult result);
    void refreshListing();
    /// Whether a folder lies in this backup or in the folder of backups, where nothing may be written.
    bool isInsideBackup(const QString& destination) const;
    void extract(QList<Extraction::Item> items, const QString& destination);
    /// Starts `body` as the model's job, its progress worded by `text` (stoppable work only).
    template <typename Body, typename Done>
    bool startJob(Body body, Done done, ProgressText text = {});
    bool workRunning() const { return m_job->isRunning(); }
    void pumpThumbnails();
    QString chatDatabase(int source);
    QString sourceLabel(int source) const;

    PhoneBackup m_backup;
    Services m_services;
    Job* m_job;         ///< opening, extraction, conversations: one at a time
    Job* m_keychainJob; ///< the keychain may ask the user: beside the work, never blocking it
    ProgressText m_progressText;
    bool m_stoppable = false;
    qint64 m_progressDone = 0;
    qint64 m_progressTotal = 0;
    CancelToken m_thumbnailsCancel;
    int m_thumbnailThreads;
    bool m_chatsPending = false; ///< asked for while another job ran

    std::shared_ptr<IPhoneBackupReader> m_reader;
    QHash<QString, QList<BackupEntry>> m_byDomain;
    QHash<QString, BackupPhoto> m_photoByID;

    Phase m_phase;
    Text m_failureMessage;
    QString m_password;
    QString m_provenPassword;
    QStringList m_sheets;
    bool m_rememberPassword = false;
    bool m_savedPassword = false;
    QList<BackupPhoto> m_photos;
    QList<DomainRow> m_domains;
    int m_tab = PhotosTab;
    QSet<QString> m_selected;
    QString m_domain;
    QStringList m_folder;
    QList<FolderItem> m_items;
    QString m_busy;
    double m_progress = -1;
    Text m_notice;
    Text m_errorNotice;
    QString m_lastFolder;
    int m_shownPhotos = photoPage;
    int m_convSource = MessagesSource;
    QList<MessagesChatInfo> m_chats;
    bool m_chatsLoading = false;
    Text m_chatsMessage;
    QString m_chatQuery;
    std::optional<BackupEntry> m_smsEntry;
    std::optional<BackupEntry> m_waEntry;
    QHash<int, QString> m_chatDatabases; ///< source → extracted database file

    QCache<QString, QImage> m_thumbs;
    QSet<QString> m_thumbFailed;
    QSet<QString> m_thumbInFlight;
    std::deque<QString> m_thumbQueue; ///< newest request at the back
    int m_thumbsDecoded = 0;
};

template <typename Body, typename Done>
bool ExplorerModel::startJob(Body body, Done done, ProgressText text)
{
    if (!m_job->start(std::move(body), std::move(done)))
        return false;
    m_progressText = std::move(text);
    m_stoppable = bool(m_progressText);
    m_progressDone = 0;
    m_progressTotal = 0;
    Q_EMIT busyChanged();
    return true;
}

} // namespace nuvrel
