#pragma once

#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/ImportRules.h"
#include "engines/photobackup/PhotoImport.h"
#include "platform/PhoneCamera.h"
#include "platform/Services.h"

#include <QDate>
#include <QObject>

#include <functional>
#include <memory>

namespace nuvrel {

class Job;

/// The "Depuis l'iPhone" half of the backup page: the phone on a cable (or a phone, a card or any
/// folder with a DCIM tree), the user's choices, and the copy into month folders, each file once.
class PhotoBackupModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString title READ title NOTIFY stateChanged)
    Q_PROPERTY(QString hint READ hint NOTIFY stateChanged)
    Q_PROPERTY(QString sourceFolder READ sourceFolder NOTIFY stateChanged)
    Q_PROPERTY(QString destination READ destination NOTIFY destinationChanged)
    Q_PROPERTY(bool includePhotos READ includePhotos WRITE setIncludePhotos NOTIFY choicesChanged)
    Q_PROPERTY(bool includeVideos READ includeVideos WRITE setIncludeVideos NOTIFY choicesChanged)
    Q_PROPERTY(Period period READ period WRITE setPeriod NOTIFY choicesChanged)
    Q_PROPERTY(QDate fromDate READ fromDate WRITE setFromDate NOTIFY choicesChanged)
    Q_PROPERTY(QDate toDate READ toDate WRITE setToDate NOTIFY choicesChanged)
    Q_PROPERTY(QString selectionSummary READ selectionSummary NOTIFY choicesChanged)
    Q_PROPERTY(bool canCopy READ canCopy NOTIFY stateChanged)
    Q_PROPERTY(bool stoppedByUser READ stoppedByUser NOTIFY progressChanged)
    Q_PROPERTY(QString progressText READ progressText NOTIFY progressChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(int failedCount READ failedCount NOTIFY progressChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY progressChanged)
    Q_PROPERTY(QString result READ result NOTIFY resultChanged)
    Q_PROPERTY(bool showRefusedHint READ showRefusedHint NOTIFY resultChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)

public:
    enum class State {
        Searching,
        NoDevice,
        Connecting,
        Locked,
        NothingReadable,
        Ready,
        Copying,
        Error,
    };
    Q_ENUM(State)

    static constexpr qint64 progressIntervalMs = 200;

    /// `historyPath`: where the copy history lives (the application's data folder, unless a test says).
    explicit PhotoBackupModel(Services services, QString historyPath = CopyHistory::defaultPath(),
                              QObject* parent = nullptr);
    ~PhotoBackupModel() override;
    Q_DISABLE_COPY_MOVE(PhotoBackupModel)

    State state() const { return m_state; }
    /// The state's title and hint, in the language in force.
    QString title() const;
    QString hint() const;
    /// The folder read instead of the phone; empty while the phone on the cable is the source.
    QString sourceFolder() const { return m_folder; }
    QString destination() const { return m_destination; }

    bool includePhotos() const { return m_choices.photos; }
    void setIncludePhotos(bool include);
    bool includeVideos() const { return m_choices.videos; }
    void setIncludeVideos(bool include);
    Period period() const { return m_choices.period; }
    void setPeriod(Period period);
    QDate fromDate() const { return m_choices.from; }
    void setFromDate(const QDate& day);
    QDate toDate() const { return m_choices.to; }
    void setToDate(const QDate& day);
    /// "%@ éléments · %@. Seules les nouveautés seront copiées.", for the current choices.
    QString selectionSummary() const;

    bool canCopy() const { return m_state == State::Ready; }
    /// "Arrêter" was pressed: the run ends after the file in hand.
    bool stoppedByUser() const { return m_stoppedByUser; }
    QString progressText() const { return m_progressText; }
    double progress() const { return m_progress; }
    int failedCount() const { return m_failedCount; }
    /// "Dernier problème : %@", or empty.
    QString lastError() const;
    /// The last run's summary, and why it stopped early.
    QString result() const;
    /// Whether the phone refused files in the last run: the page tells where the phone's setting is.
    bool showRefusedHint() const { return m_refusedBySource > 0; }
    /// What the last action could not do.
    QString notice() const { return m_notice ? m_notice() : QString(); }

    /// Starts watching the phone on the cable.
    Q_INVOKABLE void start();
    /// "Actualiser": asks the phone again, or lists the folder again.
    Q_INVOKABLE void restart();
    /// Stops watching the phone.
    Q_INVOKABLE void stop();
    /// Reads `folder` (a mounted phone, a camera's card…) instead of the phone on the cable.
    Q_INVOKABLE void useFolder(const QString& folder);
    /// Back to the phone on the cable.
    Q_INVOKABLE void usePhone();
    /// The folder the copies go to, remembered under "photoBackupFolder".
    Q_INVOKABLE void setDestination(const QString& folder);
    /// The copy: of every file ("Copier tout l'iPhone"), or of those the choices select ("Copier selon mes
    /// choix"). Only what the history does not hold is copied.
    Q_INVOKABLE void begin(bool everything);
    /// The files the choices select, oldest first.
    QList<CameraFile> selectedFiles() const;
    /// "Arrêter": the file in hand is finished first.
    Q_INVOKABLE void cancel();
    /// "Tout recopier (oublier l'historique)", once the view has confirmed it.
    Q_INVOKABLE void forgetHistory();
    /// Opens the destination folder in the file manager.
    Q_INVOKABLE void openDestination();
    /// Where full backups of the phone are read from, for the page's notice on them.
    QString backupsFolder() const;
    Q_INVOKABLE void openBackupsFolder();

Q_SIGNALS:
    void stateChanged();
    void destinationChanged();
    void choicesChanged();
    void progressChanged();
    void resultChanged();
    void noticeChanged();

private:
    using Text = std::function<QString()>;

    void followPhone();
    void list(std::function<std::shared_ptr<CameraSource>()> open);
    void setState(State state);
    void setNotice(Text notice);

    Services m_services;
    QString m_historyPath;
    Job* m_job;
    State m_state = State::Searching;
    QString m_folder;
    QString m_deviceName;
    QString m_destination;
    ImportChoices m_choices;
    std::shared_ptr<CameraSource> m_source;
    QList<CameraFile> m_files;
    quint64 m_listing = 0; ///< the listing in flight; an older one's answer is dropped
    bool m_stoppedByUser = false;
    QString m_progressText;
    double m_progress = 0;
    int m_failedCount = 0;
    QString m_lastError;
    std::optional<ImportOutcome> m_outcome;
    int m_refusedBySource = 0;
    Text m_error; ///< the error state's message
    Text m_notice;
};

} // namespace nuvrel
