#pragma once

#include "engines/vault/Vault.h"
#include "platform/Services.h"

#include <QObject>

#include <functional>
#include <memory>

namespace nuvrel {

class Job;

/// The vault page: locked until the system has checked that the person at the keyboard owns the
/// account, then the list of files sealed in it, which can be opened, taken out, or deleted for good,
/// and files put in, their originals sent to the trash. Locking (asked, or when the session locks or
/// the application quits) drops the key and the list and removes every decrypted copy.
class VaultModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isUnlocked READ isUnlocked NOTIFY stateChanged)
    Q_PROPERTY(bool isAuthenticating READ isAuthenticating NOTIFY stateChanged)
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY stateChanged)
    Q_PROPERTY(bool isStopping READ isStopping NOTIFY stateChanged)
    Q_PROPERTY(QString busyText READ busyText NOTIFY progressChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(QString countText READ countText NOTIFY itemsChanged)
    Q_PROPERTY(QString message READ message NOTIFY messageChanged)

public:
    /// Below this, an addition is over before a progress bar would mean anything.
    static constexpr qint64 progressFromBytes = qint64(64) * 1024 * 1024;

    /// `folder` empty: the vault's usual place.
    explicit VaultModel(Services services, const QString& folder = {}, QObject* parent = nullptr);
    ~VaultModel() override;

    bool isUnlocked() const { return m_vault != nullptr; }
    bool isAuthenticating() const { return m_authenticating; }
    /// An unlock, add, open or restore is running.
    bool isBusy() const;
    bool isStopping() const { return m_stopping; }
    /// "Chiffrement en cours…" while adding.
    QString busyText() const { return m_busyText ? m_busyText() : QString(); }
    /// 0..1 while adding many bytes; -1 while it cannot be told.
    double progress() const { return m_progress; }

    /// The index's entries, as shown: the latest added first.
    const QList<VaultEntry>& items() const { return m_items; }
    /// "3 fichiers dans le coffre"
    QString countText() const;
    /// The last result or error, in the language in force.
    QString message() const { return m_message ? m_message() : QString(); }

    /// The system's check, then the key and the list.
    Q_INVOKABLE void unlock();
    /// Back to locked: the key and the list dropped, the opened copies removed. Work in hand stops.
    Q_INVOKABLE void lock();
    /// Reads the list again from the disk.
    Q_INVOKABLE void refresh();
    /// Puts files in; their originals go to the trash once their encrypted copies are recorded.
    Q_INVOKABLE void addFiles(const QStringList& paths);
    /// Decrypts an entry for viewing and opens it with its default application.
    Q_INVOKABLE void open(const QUuid& id);
    /// Takes an entry out, back to its folder of origin or to Documents.
    Q_INVOKABLE void restore(const QUuid& id);
    /// Deletes an entry for good; the view asks first.
    Q_INVOKABLE void deleteForever(const QUuid& id);
    /// Stops an addition after the file in hand.
    Q_INVOKABLE void stop();

Q_SIGNALS:
    void stateChanged();
    void progressChanged();
    void itemsChanged();
    void messageChanged();

private:
    using Text = std::function<QString()>;

    void setMessage(Text message);
    void setProgress(Text text, double fraction);
    void publishItems();
    void finishUnlock(Vault::Opening opening, bool refreshing);
    /// Runs one step on the unlocked vault, off the GUI thread.
    template <typename Body, typename Done>
    void run(Text busyText, Body body, Done done);

    Services m_services;
    QString m_folder;
    Job* m_job;
    std::shared_ptr<Vault> m_vault; ///< the key lives here; shared with the step in hand
    QList<VaultEntry> m_items;
    bool m_authenticating = false;
    bool m_stopping = false;
    Text m_busyText;
    double m_progress = -1;
    Text m_message;
};

} // namespace nuvrel
