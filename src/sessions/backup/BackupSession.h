#pragma once

#include "engines/backup/BackupCatalogue.h"
#include "engines/backup/PhoneBackup.h"
#include "platform/Services.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

namespace nuvrel {

class IPhoneBackupReader;
class Job;

/// One backup opened for a page: the password of an encrypted one (with the keychain's kept password
/// and the choice to keep it), the opening off the GUI thread, the recovery sheet of a proven password,
/// and then the reader and the catalogue of what the backup holds. The explorer and the conversations
/// page each open their backups through one.
class BackupSession final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(nuvrel::BackupSession::Phase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(QString failureMessage READ failureMessage NOTIFY phaseChanged)
    Q_PROPERTY(QString password READ password WRITE setPassword NOTIFY passwordChanged)
    Q_PROPERTY(bool rememberPassword READ rememberPassword WRITE setRememberPassword NOTIFY passwordChanged)
    Q_PROPERTY(bool savedPassword READ savedPassword NOTIFY passwordChanged)
    Q_PROPERTY(bool canPrintRescueSheet READ canPrintRescueSheet NOTIFY passwordChanged)

public:
    enum class Phase { AskPassword, Loading, Ready, Failed };
    Q_ENUM(Phase)

    /// A text kept as the way to word it, so that it follows a change of language.
    using Text = std::function<QString()>;

    /// Starts at AskPassword for an encrypted backup, otherwise at Loading; start() begins the work.
    BackupSession(PhoneBackup backup, Services services, QObject* parent = nullptr);
    /// Returns at once: an opening under way is cancelled, and the reader's temporary folder goes with
    /// its last owner, on a worker.
    ~BackupSession() override;

    /// Opens a plain backup, or looks up the kept password of an encrypted one.
    void start();

    const PhoneBackup& backup() const { return m_backup; }
    Services services() const { return m_services; }
    Phase phase() const { return m_phase; }
    QString failureMessage() const { return m_failureMessage ? m_failureMessage() : QString(); }
    QString password() const { return m_password; }
    void setPassword(const QString& password);
    bool rememberPassword() const { return m_rememberPassword; }
    void setRememberPassword(bool remember);
    bool savedPassword() const { return m_savedPassword; }
    /// Whether a proven password is known: one that opened the backup, or the one kept in the keychain.
    bool canPrintRescueSheet() const { return !m_provenPassword.isEmpty(); }

    /// Once Ready: the open reader (its index closed) and what the backup holds.
    std::shared_ptr<IPhoneBackupReader> reader() const { return m_reader; }
    const BackupCatalogue& catalogue() const { return m_catalogue; }

    Q_INVOKABLE void open();
    Q_INVOKABLE void keepPassword();
    Q_INVOKABLE void forgetPassword();
    /// Makes the recovery sheet of the proven password and opens it; returns its path, empty on failure.
    /// The sheet is deleted with the session.
    Q_INVOKABLE QString printRescueSheet();

Q_SIGNALS:
    void phaseChanged();
    void passwordChanged();
    /// The keychain's answers and the sheet's failure, for the page's notice line.
    void noticeRaised(const nuvrel::BackupSession::Text& text, bool isError);

private:
    void setPhase(Phase phase, Text failure = {});

    PhoneBackup m_backup;
    Services m_services;
    Job* m_opening;
    Job* m_keychain; ///< the keychain may ask the user: beside the opening, never blocking it
    Phase m_phase;
    Text m_failureMessage;
    QString m_password;
    QString m_provenPassword;
    bool m_rememberPassword = false;
    bool m_savedPassword = false;
    QStringList m_sheets;
    std::shared_ptr<IPhoneBackupReader> m_reader;
    BackupCatalogue m_catalogue;
};

} // namespace nuvrel
