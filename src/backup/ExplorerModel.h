#pragma once

#include "backup/BackupEntry.h"
#include "backup/BackupReadError.h"
#include "conversations/ChatRecords.h"
#include "core/PhoneBackup.h"

#include <QCache>
#include <QDateTime>
#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QThreadPool>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace nuvrel {

class IPhoneBackupReader;
class SecretStore;
class Workspace;

/// One category of the "all files" tab.
struct DomainRow
{
    QString domain;
    QString title;
    qint64 count = 0; ///< files in the domain

    friend bool operator==(const DomainRow&, const DomainRow&) = default;
};

/// One line of a folder listing: a subfolder (with what lies below it) or a file.
struct FolderItem
{
    QString id;
    QString name;
    bool isFolder = false;
    qint64 count = 0; ///< files below a folder
    qint64 size = 0;
    std::optional<BackupEntry> entry; ///< for files
};

/// One camera-roll photo or video.
struct BackupPhoto
{
    BackupEntry entry;
    qint64 size = 0;
    std::optional<QDateTime> date; ///< the file's modification time
    bool isVideo = false;
};

/// The explorer of one backup: asks for its password, opens it in the background, and offers its camera
/// roll, its files by domain and folder, and its conversations for extraction, opening and PDF making.
/// Everything runs on the GUI thread except opening, thumbnails, extraction and conversation work, which
/// run in the background, one task after another (thumbnails beside them), and publish back.
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
        QList<BackupPhoto> photos;
        QHash<QString, QList<BackupEntry>> byDomain;
        QList<DomainRow> domains;
        std::optional<BackupEntry> smsEntry;
        std::optional<BackupEntry> waEntry;
    };

    struct Services
    {
        SecretStore& secrets;
        Workspace& workspace;
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

    // Pure steps, public for tests and benchmarks.
    static LoadResult organize(QList<BackupEntry> entries);
    static QString friendly(const QString& domain);
    /// A conversation's PDF file name: its title without separators or control characters, at most 80
    /// characters (never half an emoji), "Conversation.pdf" when nothing is left.
    static QString conversationFileName(const QString& title);
    static int domainRank(const QString& domain);
    static bool isPhotoPath(const QString& path, bool* isVideo = nullptr);
    /// The listing of `folder` inside one domain's entries: folders then files, each in the Finder's order.
    static QList<FolderItem> listing(const QList<BackupEntry>& entries, const QStringList& folder);

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

    struct ExtractJob
    {
        BackupEntry entry;
        QString destination;
    };
    struct ExtractOutcome
    {
        int done = 0;
        int missing = 0;
        std::optional<BackupReadError> failure; ///< a write failure stops the batch
    };

    void setPhase(Phase phase, Text failure = {});
    void setBusy(const QString& busy, double progress = -1);
    void setNotice(Text notice);
    void setErrorNotice(Text notice);
    void publish(LoadResult result);
    void refreshListing();
    /// Whether a folder lies in this backup or in the folder of backups, where nothing may be written.
    bool isInsideBackup(const QString& destination) const;
    void extract(QList<ExtractJob> jobs, const QString& destination);
    /// Runs on the background thread; posts its progress to the GUI thread.
    void postBusy(const QString& busy, double progress);
    bool workRunning() const { return m_workRunning; }
    void pumpThumbnails();
    QString chatDatabase(int source);
    QString sourceLabel(int source) const;

    PhoneBackup m_backup;
    Services m_services;
    QThreadPool m_work; ///< opening, extraction, conversations: one task at a time
    QThreadPool m_thumbnailPool;
    std::atomic<bool> m_cancel{false};
    bool m_workRunning = false;

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

} // namespace nuvrel
