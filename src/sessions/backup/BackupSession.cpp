#include "sessions/backup/BackupSession.h"

#include "engines/backup/BackupPasswordStore.h"
#include "engines/backup/BackupReadError.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "ground/Job.h"
#include "l10n/L.h"
#include "platform/Workspace.h"
#include "sessions/backup/PasswordSheet.h"

#include <QDir>
#include <QFile>

namespace nuvrel {

namespace {

// The reader's last owner, whoever it is, deletes its temporary folder.
std::shared_ptr<IPhoneBackupReader> sharedReader(std::unique_ptr<IPhoneBackupReader> reader)
{
    return std::shared_ptr<IPhoneBackupReader>(reader.release(), [](IPhoneBackupReader* last) {
        last->cleanup();
        delete last;
    });
}

// A failure that is no BackupReadError (memory ran out, say): nothing points at the disk access.
QString openingFailure()
{
    return L("Impossible d'ouvrir cette sauvegarde.");
}

} // namespace

BackupSession::BackupSession(PhoneBackup backup, Services services, QObject* parent)
    : QObject(parent)
    , m_backup(std::move(backup))
    , m_services(services)
    , m_opening(new Job(this))
    , m_keychain(new Job(this))
    , m_phase(m_backup.isEncrypted ? Phase::AskPassword : Phase::Loading)
{
    connect(m_opening, &Job::failed, this, [this] { setPhase(Phase::Failed, &openingFailure); });
}

BackupSession::~BackupSession()
{
    // The GUI thread never waits for a folder of copies to go: a worker drops this share of the reader.
    if (m_reader)
        Job::pool().start([reader = std::move(m_reader)]() mutable { reader.reset(); });
    for (const QString& sheet : std::as_const(m_sheets))
        QFile::remove(sheet);
}

void BackupSession::start()
{
    if (m_phase == Phase::Loading) {
        open();
        return;
    }
    // The keychain may take a moment (or ask the user): never on the GUI thread.
    const QString id = m_backup.id;
    SecretStore* secrets = &m_services.secrets;
    m_keychain->start([secrets, id](JobContext&) { return BackupPasswordStore(*secrets).load(id); },
                      [this](const std::optional<QString>& kept) {
                          if (!kept || m_phase != Phase::AskPassword)
                              return;
                          m_savedPassword = true;
                          m_provenPassword = *kept;
                          if (m_password.isEmpty())
                              m_password = *kept;
                          Q_EMIT passwordChanged();
                      });
}

void BackupSession::setPassword(const QString& password)
{
    if (password == m_password)
        return;
    m_password = password;
    Q_EMIT passwordChanged();
}

void BackupSession::setRememberPassword(bool remember)
{
    if (remember == m_rememberPassword)
        return;
    m_rememberPassword = remember;
    Q_EMIT passwordChanged();
}

void BackupSession::setPhase(Phase phase, Text failure)
{
    m_phase = phase;
    m_failureMessage = std::move(failure);
    Q_EMIT phaseChanged();
}

void BackupSession::open()
{
    if (m_phase == Phase::Ready || m_opening->isRunning())
        return;
    if (m_backup.isEncrypted && m_password.isEmpty()) {
        setPhase(Phase::AskPassword, [] { return BackupReadError::needsPassword().message(); });
        return;
    }
    struct Outcome
    {
        std::shared_ptr<IPhoneBackupReader> reader;
        BackupCatalogue catalogue;
        std::optional<BackupReadError> error;
        bool failed = false;
    };
    const PhoneBackup backup = m_backup;
    const QString password = m_password;
    m_opening->start(
        [backup, password](JobContext& context) -> Outcome {
            Outcome outcome;
            try {
                outcome.reader =
                    sharedReader(std::make_unique<IPhoneBackupReader>(backup, password, context.token().flag()));
                QList<BackupEntry> entries = outcome.reader->loadEntries();
                // Everything works from the entries in memory from here on.
                outcome.reader->closeDatabase();
                outcome.catalogue = BackupCatalogue::organize(std::move(entries));
            } catch (const BackupReadError& error) {
                outcome.reader.reset();
                outcome.error = error;
            } catch (const std::exception&) {
                outcome.reader.reset();
                outcome.failed = true;
            }
            return outcome;
        },
        [this](Outcome outcome) {
            if (outcome.reader) {
                if (m_backup.isEncrypted)
                    m_provenPassword = m_password;
                m_reader = std::move(outcome.reader);
                m_catalogue = std::move(outcome.catalogue);
                setPhase(Phase::Ready);
                Q_EMIT passwordChanged();
                if (m_rememberPassword && m_backup.isEncrypted)
                    keepPassword();
                return;
            }
            if (!outcome.error) {
                setPhase(Phase::Failed, &openingFailure);
                return;
            }
            const auto kind = outcome.error->kind();
            const bool askAgain =
                kind == BackupReadError::Kind::NeedsPassword || kind == BackupReadError::Kind::WrongPassword;
            setPhase(askAgain ? Phase::AskPassword : Phase::Failed,
                     [error = *outcome.error] { return error.message(); });
        });
    setPhase(Phase::Loading);
}

void BackupSession::keepPassword()
{
    if (m_password.isEmpty())
        return;
    const QString id = m_backup.id;
    const QString password = m_password;
    SecretStore* secrets = &m_services.secrets;
    m_keychain->start(
        [secrets, id, password](JobContext&) { return BackupPasswordStore(*secrets).save(password, id); },
        [this](bool saved) {
            if (!saved) {
                Q_EMIT noticeRaised([] { return L("Le Trousseau a refusé de garder le mot de passe."); }, true);
                return;
            }
            m_savedPassword = true;
            Q_EMIT passwordChanged();
            Q_EMIT noticeRaised([] { return L("Mot de passe gardé dans le Trousseau de ce Mac."); }, false);
        });
}

void BackupSession::forgetPassword()
{
    const QString id = m_backup.id;
    SecretStore* secrets = &m_services.secrets;
    m_keychain->start([secrets, id](JobContext&) { return BackupPasswordStore(*secrets).remove(id); },
                      [this](bool removed) {
                          if (!removed) {
                              Q_EMIT noticeRaised(
                                  [] { return L("Le Trousseau a refusé de supprimer le mot de passe."); }, true);
                              return;
                          }
                          m_savedPassword = false;
                          m_rememberPassword = false;
                          Q_EMIT passwordChanged();
                          Q_EMIT noticeRaised([] { return L("Mot de passe supprimé du Trousseau."); }, false);
                      });
}

QString BackupSession::printRescueSheet()
{
    // Only a password that opened the backup (or the kept one) goes on paper: a typo there would be
    // worse than no sheet at all.
    if (!canPrintRescueSheet())
        return {};
    QString sheet = PasswordSheet::make(m_backup.deviceName, m_provenPassword);
    if (!sheet.isEmpty())
        m_sheets.append(sheet);
    if (sheet.isEmpty()) {
        Q_EMIT noticeRaised([] { return L("Impossible de créer la fiche de secours."); }, true);
    } else if (!m_services.workspace.open(sheet)) {
        // Made, but nothing here shows PDFs: the user can still open it from where it is.
        Q_EMIT noticeRaised(
            [sheet] {
                return L("La fiche de secours est prête, mais aucune application n'a pu l'ouvrir : %@",
                         QDir::toNativeSeparators(sheet));
            },
            true);
    }
    return sheet;
}

} // namespace nuvrel
