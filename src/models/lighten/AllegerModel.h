#pragma once

#include "engines/lighten/LightenTarget.h"
#include "models/lighten/LightenList.h"
#include "platform/Services.h"

#include <QObject>

#include <functional>

namespace nuvrel {

class Job;

/// The lighten page: files dropped or picked, made small enough for the chosen channel, one copy
/// each in "Nuvrel-Alleges" in the pictures folder, then handed to WhatsApp, Telegram, Mail,
/// Messages or the clipboard. The sources are never written.
///
/// A pass lightens every waiting row: videos one at a time (ffmpeg already uses every core), the
/// photos, PDFs and other files between them side by side, one per core; rows change in list order.
class AllegerModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int target READ target WRITE setTarget NOTIFY optionsChanged)
    Q_PROPERTY(bool stripLocation READ stripLocation WRITE setStripLocation NOTIFY optionsChanged)
    Q_PROPERTY(bool convertHeic READ convertHeic WRITE setConvertHeic NOTIFY optionsChanged)
    Q_PROPERTY(bool running READ running NOTIFY runningChanged)
    Q_PROPERTY(bool stopping READ stopping NOTIFY runningChanged)
    Q_PROPERTY(int limitMB READ limitMB WRITE setLimitMB NOTIFY optionsChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool importing READ importing CONSTANT)
    Q_PROPERTY(bool autoLighten READ autoLighten WRITE setAutoLighten NOTIFY optionsChanged)
    Q_PROPERTY(bool showClearFolder READ showClearFolder NOTIFY showClearFolderChanged)
    Q_PROPERTY(qint64 usedBytes READ usedBytes NOTIFY itemsChanged)
    Q_PROPERTY(QString totalText READ totalText NOTIFY itemsChanged)
    Q_PROPERTY(int doneCount READ doneCount NOTIFY itemsChanged)
    Q_PROPERTY(int waitingCount READ waitingCount NOTIFY itemsChanged)

public:
    static constexpr int maxGatheredFiles = 4999;
    static constexpr qint64 progressIntervalMs = 200;
    /// Rows of one drop that get a thumbnail; the rest keep their kind's icon.
    static constexpr int maxThumbnails = 300;
    static constexpr int thumbnailSide = 96;

    explicit AllegerModel(Services services, QObject* parent = nullptr);
    ~AllegerModel() override;

    LightenList& items() const { return *m_items; }

    int target() const { return int(m_target); }
    void setTarget(int target);
    bool stripLocation() const { return m_stripLocation; }
    void setStripLocation(bool strip);
    bool convertHeic() const { return m_convertHeic; }
    void setConvertHeic(bool convert);
    /// The user's own limit, shown with the free target; the lightener applies no budget there.
    int limitMB() const { return m_limitMB; }
    void setLimitMB(int megabytes);
    bool autoLighten() const { return m_autoLighten; }
    void setAutoLighten(bool automatic);

    bool running() const;
    bool stopping() const;
    QString notice() const { return m_notice ? m_notice() : QString(); }
    /// A Photos library import never runs in the background here: photos are chosen as files.
    bool importing() const { return false; }
    bool showClearFolder() const { return m_showClearFolder; }

    /// The lightened size of done rows and the source size of the others.
    qint64 usedBytes() const;
    /// "Total : 3,2 Mo · 16 Mo max par fichier"
    QString totalText() const;
    int doneCount() const;
    int waitingCount() const;
    /// The lightened files, in list order.
    QStringList doneFiles() const;

    /// Files and folders dropped or picked; a pass starts when autoLighten is on.
    Q_INVOKABLE void add(const QStringList& paths);
    /// Lightens every waiting row.
    Q_INVOKABLE void run();
    /// Stops after the files in hand; a video in hand stops at once and waits again.
    Q_INVOKABLE void stop();
    /// Takes a row out of the list; its files stay where they are.
    Q_INVOKABLE void remove(int row);
    Q_INVOKABLE void clear();
    /// Moves the lightened files of the output folder to the trash.
    Q_INVOKABLE void clearOutputFolder();
    /// Hands the lightened files to the target's application, or to the clipboard.
    Q_INVOKABLE void send();

    /// Where the picker opens: the folder last picked from, while it exists, else the pictures folder.
    QString pickerFolder() const;
    void rememberPickedFolder(const QString& folder);
    /// The picker's prompt.
    static QString pickerPrompt();
    /// The file chooser that stands in for a Photos library: its folder and its name filter.
    static QString photosFolder();
    static QStringList photosNameFilters();

    /// "Nuvrel-Alleges" in the pictures folder, unless set (tests).
    QString outputFolder() const { return m_outputFolder; }
    void setOutputFolder(const QString& folder);

Q_SIGNALS:
    void optionsChanged();
    void runningChanged();
    void noticeChanged();
    void showClearFolderChanged();
    void itemsChanged();

private:
    using Text = std::function<QString()>;
    struct Work;

    void setNotice(Text notice);
    void updateClearFolder();
    void publishResult(const LightenItem& item);
    void copyAndReveal(const QStringList& files);
    void makeThumbnails(const QList<LightenItem>& items);

    Services m_services;
    LightenList* m_items;
    Job* m_job;
    LightenTarget m_target = LightenTarget::WhatsApp;
    bool m_stripLocation = true;
    bool m_convertHeic = true;
    int m_limitMB = 20;
    bool m_autoLighten = true;
    bool m_stopping = false;
    bool m_showClearFolder = false;
    Text m_notice;
    QString m_outputFolder;
};

} // namespace nuvrel
