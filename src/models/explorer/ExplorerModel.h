#pragma once

#include "engines/backup/BackupCatalogue.h"
#include "engines/backup/Extraction.h"
#include "engines/backup/PhoneBackup.h"
#include "engines/conversations/ChatRecords.h"
#include "ground/Job.h"
#include "models/explorer/FileBrowser.h"
#include "models/explorer/PhotoRoll.h"
#include "platform/Services.h"
#include "sessions/backup/BackupSession.h"
#include "sessions/conversations/ChatList.h"

#include <QHash>
#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace nuvrel {

class ConversationSource;

class IPhoneBackupReader;

/// The explorer of one backup, the one place where the backup and the conversations meet. Its parts,
/// each an object of its own: the session (password, opening, keychain, recovery sheet), the photo
/// roll, the file browser and the conversation list, the last three list models for the views. This
/// class runs the page's long work (extraction, opening a file, reading conversations, making PDFs) as
/// one job at a time and words its progress and outcome. Nothing waits for that work: destroyed, the
/// model cancels it and lets it go. Optional texts are empty when absent.
class ExplorerModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(nuvrel::ExplorerModel::Phase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(QString failureMessage READ failureMessage NOTIFY phaseChanged)
    Q_PROPERTY(QString password READ password WRITE setPassword NOTIFY passwordChanged)
    Q_PROPERTY(bool rememberPassword READ rememberPassword WRITE setRememberPassword NOTIFY passwordChanged)
    Q_PROPERTY(bool savedPassword READ savedPassword NOTIFY passwordChanged)
    Q_PROPERTY(int tab READ tab WRITE setTab NOTIFY tabChanged)
    Q_PROPERTY(QString busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(double progress READ progress NOTIFY busyChanged)
    Q_PROPERTY(bool canStop READ canStop NOTIFY busyChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(QString errorNotice READ errorNotice NOTIFY noticeChanged)
    Q_PROPERTY(QString lastFolder READ lastFolder NOTIFY lastFolderChanged)
    /// The SHA-256 of the PDF just made, shown with its notice; empty once another notice replaces it.
    Q_PROPERTY(QString pdfFingerprint READ pdfFingerprint NOTIFY noticeChanged)
    Q_PROPERTY(int convSource READ convSource WRITE setConvSource NOTIFY convSourceChanged)
    Q_PROPERTY(bool chatsLoading READ chatsLoading NOTIFY chatsChanged)
    Q_PROPERTY(QString chatsMessage READ chatsMessage NOTIFY chatsChanged)

public:
    using Phase = BackupSession::Phase;

    enum Tab { PhotosTab = 0, FilesTab = 1, ConversationsTab = 2 };
    enum ConvSourceIndex { MessagesSource = 0, WhatsAppSource = 1 };

    /// Starts at AskPassword for an encrypted backup, otherwise at Loading; start() begins the work.
    ExplorerModel(PhoneBackup backup, Services services, QObject* parent = nullptr);
    ~ExplorerModel() override;

    /// Opens a plain backup, or looks up the kept password of an encrypted one.
    void start() { m_session->start(); }

    BackupSession& session() const { return *m_session; }
    PhotoRoll& photoRoll() const { return *m_photos; }
    FileBrowser& fileBrowser() const { return *m_files; }
    ChatList& chatList() const { return *m_chats; }

    // The session's state, as the page shows it.
    const PhoneBackup& backup() const { return m_session->backup(); }
    Phase phase() const { return m_session->phase(); }
    QString failureMessage() const { return m_session->failureMessage(); }
    QString password() const { return m_session->password(); }
    void setPassword(const QString& password) { m_session->setPassword(password); }
    bool rememberPassword() const { return m_session->rememberPassword(); }
    void setRememberPassword(bool remember) { m_session->setRememberPassword(remember); }
    bool savedPassword() const { return m_session->savedPassword(); }
    bool canPrintRescueSheet() const { return m_session->canPrintRescueSheet(); }
    Q_INVOKABLE void openBackup() { m_session->open(); }
    Q_INVOKABLE void keepPassword() { m_session->keepPassword(); }
    Q_INVOKABLE void forgetPassword() { m_session->forgetPassword(); }
    Q_INVOKABLE QString printRescueSheet() { return m_session->printRescueSheet(); }

    int tab() const { return m_tab; }
    void setTab(int tab);

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
    QString pdfFingerprint() const { return m_pdfFingerprint; }
    /// Puts pdfFingerprint on the clipboard.
    Q_INVOKABLE void copyPdfFingerprint();
    Q_INVOKABLE void revealLastFolder();

    // Photos
    Q_INVOKABLE void extractSelectedPhotos(const QString& destination);
    Q_INVOKABLE void extractAllPhotos(const QString& destination);

    // All files
    Q_INVOKABLE void extractCurrentFolder(const QString& destination);
    Q_INVOKABLE void openFile(const nuvrel::BackupEntry& entry);

    // Conversations
    int convSource() const { return m_convSource; }
    void setConvSource(int source);
    bool chatsLoading() const { return m_chatsLoading; }
    /// Why no list is shown: no database, no conversation, no message…
    QString chatsMessage() const { return m_chatsMessage ? m_chatsMessage() : QString(); }
    Q_INVOKABLE void loadChats();
    Q_INVOKABLE void createChatPDF(qint64 chatID);
    /// One PDF per conversation the list shows, into ConversationFiles::folder().
    Q_INVOKABLE void createAllChatPDFs();

Q_SIGNALS:
    void phaseChanged();
    void passwordChanged();
    void tabChanged();
    void busyChanged();
    void noticeChanged();
    void lastFolderChanged();
    void convSourceChanged();
    void chatsChanged();

private:
    using Text = BackupSession::Text;
    /// How a running job's progress is worded ("Extraction %@ sur %@…").
    using ProgressText = std::function<QString(qint64 done, qint64 total)>;

    void setBusy(const QString& busy, double progress = -1);
    void setNotice(Text notice);
    void setErrorNotice(Text notice);
    void sessionPhaseChanged();
    /// Whether a folder lies in this backup or in the folder of backups, where nothing may be written.
    bool isInsideBackup(const QString& destination) const;
    void extract(QList<Extraction::Item> items, const QString& destination);
    /// Starts `body` as the model's job; `text` words its progress, and makes it stoppable.
    template <typename Body, typename Done>
    bool startJob(Body body, Done done, ProgressText text = {});
    bool workRunning() const { return m_job->isRunning(); }
    QString sourceLabel(int source) const;

    BackupSession* m_session;
    PhotoRoll* m_photos;
    FileBrowser* m_files;
    ChatList* m_chats;
    Job* m_job; ///< extraction, opening a file, conversations: one at a time
    ProgressText m_progressText;
    bool m_stoppable = false;
    qint64 m_progressDone = 0;
    qint64 m_progressTotal = 0;

    std::shared_ptr<IPhoneBackupReader> m_reader;
    int m_tab = PhotosTab;
    QString m_busy;
    double m_progress = -1;
    Text m_notice;
    Text m_errorNotice;
    QString m_lastFolder;
    QString m_pdfFingerprint;

    int m_convSource = MessagesSource;
    bool m_chatsLoading = false;
    bool m_chatsPending = false; ///< asked for while another job ran
    Text m_chatsMessage;
    /// Source → its database taken out of the backup, read through one private copy for the session.
    QHash<int, std::shared_ptr<const ConversationSource>> m_chatSources;
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
