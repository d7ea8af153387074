#pragma once

#include "engines/duplicates/DuplicateScanner.h"
#include "platform/Services.h"

#include <QCache>
#include <QImage>
#include <QObject>

#include <functional>

namespace nuvrel {

class Job;

/// The duplicates page: a folder searched for identical files and for photos that look alike, each
/// group's oldest file kept, the others ticked by the user and sent to the trash once checked again.
/// In identical groups every copy but the oldest is ticked at first; in similar groups nothing is (a
/// similar photo is not a copy). A group can never have every member ticked.
class DuplicatesModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString folder READ folder WRITE setFolder NOTIFY folderChanged)
    Q_PROPERTY(bool scanning READ scanning NOTIFY busyChanged)
    Q_PROPERTY(bool trashing READ trashing NOTIFY busyChanged)
    Q_PROPERTY(bool stopping READ stopping NOTIFY busyChanged)
    Q_PROPERTY(QString progressText READ progressText NOTIFY progressChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(bool scanned READ scanned NOTIFY groupsChanged)
    Q_PROPERTY(QString summary READ summary NOTIFY groupsChanged)
    Q_PROPERTY(qint64 recoverable READ recoverable NOTIFY marksChanged)
    Q_PROPERTY(int markedCount READ markedCount NOTIFY marksChanged)
    Q_PROPERTY(QString trashButtonText READ trashButtonText NOTIFY marksChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)

public:
    using Kind = DupGroup::Kind;
    static constexpr qint64 progressIntervalMs = 200;
    static constexpr int thumbnailSide = 160;
    static constexpr int imageCacheKiB = 192 * 1024;

    explicit DuplicatesModel(Services services, QObject* parent = nullptr);
    ~DuplicatesModel() override;

    /// The folder searched: the one last chosen (remembered across runs) while it exists.
    QString folder() const { return m_folder; }
    void setFolder(const QString& folder);
    /// Where the folder picker opens.
    QString pickerFolder() const;

    bool scanning() const;
    bool trashing() const;
    bool stopping() const { return m_stopping; }
    QString progressText() const { return m_progressText; }
    double progress() const { return m_progress; }

    /// Whether a scan of the folder completed (its groups may be none).
    bool scanned() const { return m_scanned; }
    /// "3 groupes de fichiers identiques · 2 groupes de photos qui se ressemblent", or what was found.
    QString summary() const;
    const QList<DupGroup>& groups(Kind kind) const { return kind == Kind::Identical ? m_identical : m_similar; }

    /// The bytes freed by trashing every ticked file.
    qint64 recoverable() const;
    int markedCount() const;
    /// "Mettre à la Corbeille (3,2 Mo)"
    QString trashButtonText() const;
    /// Why the last action did not do all it was asked, or what it did.
    QString notice() const { return m_notice ? m_notice() : QString(); }

    /// Ticks or unticks a file; false (and nothing changes) when it would tick a whole group.
    Q_INVOKABLE bool setMarked(Kind kind, int group, int item, bool marked);
    /// Searches the folder; the previous groups go.
    Q_INVOKABLE void scan();
    /// Stops the scan or the trip to the trash after the file in hand.
    Q_INVOKABLE void stop();
    /// Sends the ticked files to the trash, each checked again first; the view asks for confirmation.
    Q_INVOKABLE void moveMarkedToTrash();
    Q_INVOKABLE void open(const QString& path);
    Q_INVOKABLE void reveal(const QString& path);

    /// Asks for a picture of a photo, its long side at most `side`: imageReady() brings it, off the GUI
    /// thread's time, or a null image when the photo cannot be shown. Pictures already made come back
    /// at once.
    Q_INVOKABLE void requestImage(const QString& path, int side);
    QImage cachedImage(const QString& path, int side) const;

Q_SIGNALS:
    void folderChanged();
    void busyChanged();
    void progressChanged();
    void groupsChanged();
    void marksChanged();
    void noticeChanged();
    void imageReady(const QString& path, int side, const QImage& image);

private:
    using Text = std::function<QString()>;

    void setNotice(Text notice);
    void setProgress(const QString& text, double fraction);
    void applyTrashReport(const DupTrashReport& report);
    void takeNextImage();

    Services m_services;
    Job* m_job;
    QString m_folder;
    bool m_stopping = false;      ///< while the job winds down
    bool m_stopRequested = false; ///< until the next scan: its result is partial
    bool m_scanned = false;
    bool m_trashing = false;
    QString m_progressText;
    double m_progress = 0;
    QList<DupGroup> m_identical;
    QList<DupGroup> m_similar;
    int m_skippedBundles = 0;
    int m_unreadable = 0;
    Text m_notice;

    // Pictures for the cards and the preview, made one at a time by one pool worker.
    QList<QPair<QString, int>> m_imageQueue;
    bool m_imageWorkerBusy = false;
    QCache<QPair<QString, int>, QImage> m_images; ///< cost in KiB
};

} // namespace nuvrel
