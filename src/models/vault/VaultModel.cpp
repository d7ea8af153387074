#include "models/vault/VaultModel.h"

#include "ground/Job.h"
#include "l10n/L.h"
#include "platform/OwnerCheck.h"
#include "platform/SessionLock.h"
#include "platform/Workspace.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>

namespace nuvrel {

namespace {

QString count(qint64 value)
{
    return Localizer::locale().toString(value);
}

/// What a failed step says, by why it failed.
QString failureText(const VaultFailure& failure, const char* otherwise)
{
    switch (failure.kind) {
    case VaultFailure::Kind::DigestMismatch:
        return L("Ce fichier du coffre ne correspond pas à sa fiche : il a été déplacé ou échangé. Rien n'a été "
                 "modifié.");
    case VaultFailure::Kind::Authentication:
    case VaultFailure::Kind::BadMagic:
    case VaultFailure::Kind::ShortHeader:
    case VaultFailure::Kind::ChunkLength:
    case VaultFailure::Kind::ShortRead:
    case VaultFailure::Kind::TrailingData:
        return L("Ce fichier du coffre est abîmé : il ne peut pas être déchiffré. Rien n'a été modifié.");
    case VaultFailure::Kind::WriteFailed:
        return L("%@ Le disque a refusé l'écriture (il est peut-être plein).", L(otherwise));
    case VaultFailure::Kind::Cancelled: return L("Arrêté : rien n'a été modifié.");
    default: return L(otherwise);
    }
}

struct UnlockAnswer
{
    OwnerCheck::Outcome outcome = OwnerCheck::Outcome::Refused;
    Vault::Opening opening;
    bool cancelled = false;
};

} // namespace

VaultModel::VaultModel(Services services, const QString& folder, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_folder(folder.isEmpty() ? VaultStore::defaultFolder() : folder)
    , m_job(new Job(this))
{
    connect(m_job, &Job::runningChanged, this, [this] {
        if (!m_job->isRunning()) {
            m_stopping = false;
            m_busyText = {};
            m_progress = -1;
            Q_EMIT progressChanged();
        }
        Q_EMIT stateChanged();
    });
    connect(m_job, &Job::failed, this, [this] {
        m_authenticating = false;
        setMessage([] { return L("L'opération a été interrompue par une erreur interne."); });
    });
    // Decrypted copies never outlive the user's presence nor the application.
    m_services.sessionLock.watch([self = QPointer<VaultModel>(this)] {
        if (self)
            self->lock();
    });
    if (QCoreApplication* application = QCoreApplication::instance())
        connect(application, &QCoreApplication::aboutToQuit, this, &VaultModel::lock);
}

VaultModel::~VaultModel()
{
    m_services.sessionLock.watch({});
    m_vault.reset();
    Vault::removeOpenedCopies();
}

bool VaultModel::isBusy() const
{
    return m_job->isRunning();
}

QString VaultModel::countText() const
{
    return LN("%@ fichier(s) dans le coffre", m_items.size(), count(m_items.size()));
}

void VaultModel::setMessage(Text message)
{
    m_message = std::move(message);
    Q_EMIT messageChanged();
}

void VaultModel::setProgress(Text text, double fraction)
{
    m_busyText = std::move(text);
    m_progress = fraction;
    Q_EMIT progressChanged();
}

void VaultModel::publishItems()
{
    m_items = m_vault ? m_vault->entries() : QList<VaultEntry>();
    std::stable_sort(m_items.begin(), m_items.end(),
                     [](const VaultEntry& a, const VaultEntry& b) { return a.added > b.added; });
    Q_EMIT itemsChanged();
}

void VaultModel::unlock()
{
    if (m_vault || m_job->isRunning())
        return;
    m_authenticating = true;
    setMessage({});
    OwnerCheck* check = &m_services.ownerCheck;
    SecretStore* secrets = &m_services.secrets;
    Trash* trash = &m_services.trash;
    m_job->start(
        [check, secrets, trash, folder = m_folder, self = QPointer<VaultModel>(this)](JobContext& context) {
            // The system's dialog may stay up for minutes: this waits on a worker, not on the window.
            const OwnerCheck::Outcome outcome = check->confirmOwner(L("Déverrouiller le coffre de Nuvrel"));
            context.publish([self] {
                if (self) {
                    self->m_authenticating = false;
                    Q_EMIT self->stateChanged();
                }
            });
            auto answer = std::make_shared<UnlockAnswer>();
            answer->outcome = outcome;
            // Locked while the dialog was up: the answer comes too late to open anything.
            answer->cancelled = context.isCancelled();
            if (outcome == OwnerCheck::Outcome::Confirmed && !answer->cancelled)
                answer->opening = Vault::open(folder, *secrets, *trash, context.token().flag());
            return answer;
        },
        [this](const std::shared_ptr<UnlockAnswer>& answer) {
            m_authenticating = false;
            if (answer->cancelled) {
                Q_EMIT stateChanged();
                return;
            }
            switch (answer->outcome) {
            case OwnerCheck::Outcome::Refused:
                setMessage([] { return L("Authentification annulée ou échouée."); });
                break;
            case OwnerCheck::Outcome::Unavailable:
                setMessage([] {
                    return L("Impossible de vérifier ton identité sur cet ordinateur : le coffre reste verrouillé.");
                });
                break;
            case OwnerCheck::Outcome::Confirmed: finishUnlock(std::move(answer->opening), false); break;
            }
            Q_EMIT stateChanged();
        });
    Q_EMIT stateChanged();
}

void VaultModel::finishUnlock(Vault::Opening opening, bool refreshing)
{
    if (!opening.vault) {
        switch (opening.error) {
        case VaultOpenError::CannotCreateFolder:
            setMessage([] { return L("Impossible de créer le dossier du coffre."); });
            break;
        case VaultOpenError::CannotCreateKey:
            setMessage([] { return L("Impossible de créer la clé du coffre."); });
            break;
        case VaultOpenError::KeyMissing:
            setMessage([] {
                return L("La clé du coffre est introuvable sur ce Mac : les fichiers ne peuvent pas être ouverts.");
            });
            break;
        case VaultOpenError::UnreadableIndex: setMessage([] { return L("La liste du coffre est illisible."); }); break;
        }
        return;
    }
    m_vault = std::shared_ptr<Vault>(std::move(opening.vault));
    publishItems();
    // A refresh with nothing to tell leaves the last result on show.
    if (!opening.fromPreviousIndex && opening.recovered == 0 && !opening.migrationFailed) {
        if (!refreshing)
            setMessage({});
        return;
    }
    setMessage([fromPreviousIndex = opening.fromPreviousIndex, recovered = opening.recovered,
                migrationFailed = opening.migrationFailed] {
        QStringList parts;
        if (fromPreviousIndex)
            parts.append(L("La liste du coffre était abîmée : le coffre s'est ouvert avec sa version précédente."));
        if (recovered > 0)
            parts.append(LN("%@ fichier(s) retrouvé(s) après une interruption : ils s'appellent « Fichier récupéré ».",
                            recovered, count(recovered)));
        if (migrationFailed)
            parts.append(L("Impossible de protéger les anciens fichiers du coffre."));
        return parts.join(u' ');
    });
}

void VaultModel::lock()
{
    if (m_job->isRunning()) {
        m_stopping = true;
        m_job->cancel(); // what it holds of the vault goes with it
    }
    const bool wasUnlocked = m_vault != nullptr;
    m_vault.reset();
    m_authenticating = false;
    if (!Vault::removeOpenedCopies())
        setMessage([] { return L("Certaines copies ouvertes n'ont pas pu être effacées."); });
    else if (wasUnlocked)
        setMessage({});
    publishItems();
    Q_EMIT stateChanged();
}

void VaultModel::refresh()
{
    if (!m_vault || m_job->isRunning())
        return;
    // The list is read again through a fresh opening under the same key: what another window or the
    // command line changed shows.
    SecretStore* secrets = &m_services.secrets;
    Trash* trash = &m_services.trash;
    m_job->start(
        [secrets, trash, folder = m_folder](JobContext& context) {
            return std::make_shared<Vault::Opening>(Vault::open(folder, *secrets, *trash, context.token().flag()));
        },
        [this](const std::shared_ptr<Vault::Opening>& opening) {
            if (!m_vault)
                return; // locked meanwhile
            finishUnlock(std::move(*opening), true);
        });
    Q_EMIT stateChanged();
}

template <typename Body, typename Done>
void VaultModel::run(Text busyText, Body body, Done done)
{
    if (!m_vault || m_job->isRunning())
        return;
    setMessage({});
    setProgress(std::move(busyText), -1);
    m_job->start([vault = m_vault, body = std::move(body), self = QPointer<VaultModel>(this)](
                     JobContext& context) mutable { return body(*vault, context, self); },
                 std::move(done));
    Q_EMIT stateChanged();
}

void VaultModel::addFiles(const QStringList& paths)
{
    if (paths.isEmpty())
        return;
    Trash* trash = &m_services.trash;
    run([] { return L("Chiffrement en cours…"); },
        [paths, trash](Vault& vault, JobContext& context, const QPointer<VaultModel>& self) {
            QElapsedTimer clock;
            clock.start();
            return vault.add(
                paths, *trash,
                [&](qint64 done, qint64 total) {
                    if (total < progressFromBytes || (clock.elapsed() < JobContext::progressIntervalMs && done < total))
                        return;
                    clock.restart();
                    context.publish([self, fraction = double(done) / double(total)] {
                        if (self)
                            self->setProgress([] { return L("Chiffrement en cours…"); }, fraction);
                    });
                },
                context.token().flag());
        },
        [this](const VaultAddReport& report) {
            publishItems();
            setMessage([report] {
                QStringList parts;
                if (!report.added.isEmpty()) {
                    parts.append(
                        LN("%@ fichier(s) mis dans le coffre.", report.added.size(), count(report.added.size())));
                    parts.append(L("Les originaux sont à la Corbeille : vide-la pour qu'ils disparaissent vraiment."));
                }
                if (report.added.isEmpty() && !report.notMoved.isEmpty() && report.failed.isEmpty())
                    parts.append(L("Impossible de déplacer ces fichiers."));
                else if (!report.failed.isEmpty() || !report.notMoved.isEmpty())
                    parts.append(L("Certains fichiers n'ont pas pu être protégés : ils sont restés à leur place."));
                if (report.cancelled)
                    parts.append(L("Ajout arrêté : les fichiers restants n'ont pas été touchés."));
                return parts.join(u' ');
            });
        });
}

void VaultModel::open(const QUuid& id)
{
    Workspace* workspace = &m_services.workspace;
    run([] { return L("Déchiffrement en cours…"); },
        [id](Vault& vault, JobContext& context, const QPointer<VaultModel>&) -> std::optional<QString> {
            try {
                return vault.openCopy(id, {}, context.token().flag());
            } catch (const VaultFailure& failure) {
                if (failure.kind == VaultFailure::Kind::DigestMismatch)
                    return QString(); // said apart: the entry is not what it names
                return std::nullopt;
            }
        },
        [this, workspace](const std::optional<QString>& copy) {
            if (!m_vault) {
                // Locked while it was being written: it must not stay.
                Vault::removeOpenedCopies();
                return;
            }
            if (copy && copy->isEmpty())
                setMessage([] { return failureText({VaultFailure::Kind::DigestMismatch}, ""); });
            else if (!copy || !workspace->open(*copy))
                setMessage([] { return L("Impossible d'ouvrir ce fichier."); });
        });
}

void VaultModel::restore(const QUuid& id)
{
    run([] { return L("Déchiffrement en cours…"); },
        [id](Vault& vault, JobContext& context, const QPointer<VaultModel>&) -> std::optional<VaultFailure> {
            try {
                vault.restore(id, {}, context.token().flag());
                return std::nullopt;
            } catch (const VaultFailure& failure) {
                return failure;
            }
        },
        [this](const std::optional<VaultFailure>& failure) {
            publishItems();
            if (failure)
                setMessage([kind = failure->kind] {
                    return failureText({kind}, "Impossible de sortir ce fichier du coffre.");
                });
            else
                setMessage([] { return L("Fichier sorti du coffre."); });
        });
}

void VaultModel::deleteForever(const QUuid& id)
{
    run([] { return QString(); },
        [id](Vault& vault, JobContext&, const QPointer<VaultModel>&) { return vault.remove(id); },
        [this](bool removed) {
            publishItems();
            if (!removed)
                setMessage([] { return L("Impossible de supprimer ce fichier du coffre."); });
        });
}

void VaultModel::stop()
{
    if (!m_job->isRunning() || m_stopping || m_authenticating)
        return;
    m_stopping = true;
    m_job->cancel();
    Q_EMIT stateChanged();
}

} // namespace nuvrel
