#pragma once

#include "platform/Appearance.h"
#include "platform/Clipboard.h"
#include "platform/Handoff.h"
#include "platform/NearbyShare.h"
#include "platform/OwnerCheck.h"
#include "platform/PhoneCamera.h"
#include "platform/Services.h"
#include "platform/SessionLock.h"
#include "platform/Trash.h"
#include "platform/Volumes.h"
#include "support/MemorySecretStore.h"
#include "support/RecordingWorkspace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringList>
#include <QTemporaryDir>

namespace nuvrel::test {

/// A trash of its own: what is moved to it lands in a scratch folder, so a test can see it kept.
class FolderTrash final : public Trash
{
public:
    std::optional<QString> moveToTrash(const QString& path) override
    {
        const QString target = m_folder.filePath(QString::number(trashed.size()) + u'-' + QFileInfo(path).fileName());
        if (refuse || !QFile::rename(path, target))
            return std::nullopt;
        trashed.append(path);
        return target;
    }

    QStringList trashed; ///< the original places, in order
    bool refuse = false;

private:
    QTemporaryDir m_folder;
};

/// A clipboard that remembers the last thing copied.
class MemoryClipboard final : public Clipboard
{
public:
    void copyText(const QString& value) override
    {
        text = value;
        files.clear();
    }
    void copyFiles(const QStringList& paths) override
    {
        files = paths;
        text.clear();
    }

    QString text;
    QStringList files;
};

/// Volumes told by the test: one holding everything, unless `volumes` says otherwise.
class FixedVolumes final : public Volumes
{
public:
    std::optional<Volume> volumeOf(const QString& path) override
    {
        const QString clean = QDir::cleanPath(QDir(path).absolutePath());
        std::optional<Volume> best;
        for (const Volume& volume : std::as_const(volumes)) {
            if ((clean == volume.root ||
                 clean.startsWith(volume.root.endsWith(u'/') ? volume.root : volume.root + u'/')) &&
                (!best || volume.root.size() > best->root.size()))
                best = volume;
        }
        return best;
    }
    QList<Volume> mounted() override { return volumes; }

    QList<Volume> volumes{{QStringLiteral("/"), QStringLiteral("Disque"), 500'000'000'000, 200'000'000'000, false}};
};

/// A desktop whose colour scheme a test sets.
class FixedAppearance final : public Appearance
{
public:
    Scheme scheme() const override { return current; }
    void watch(std::function<void()> changed) override { watcher = std::move(changed); }
    /// As the desktop would: the new scheme, then the watcher told.
    void change(Scheme scheme)
    {
        current = scheme;
        if (watcher)
            watcher();
    }

    Scheme current = Scheme::NoPreference;
    std::function<void()> watcher;
};

/// A hand-off that records what it was given and answers as the test says.
class RecordingHandoff final : public Handoff
{
public:
    Outcome send(Channel channel, const QStringList& files) override
    {
        sent.append({channel, files});
        return answer;
    }

    QList<QPair<Channel, QStringList>> sent;
    Outcome answer{Outcome::Kind::NotAvailable, {}};
};

/// An owner check that answers as the test says, and counts how often it was asked.
class ScriptedOwnerCheck final : public OwnerCheck
{
public:
    Outcome confirmOwner(const QString& reason) override
    {
        reasons.append(reason);
        return answer;
    }

    Outcome answer = Outcome::Confirmed;
    QStringList reasons;
};

/// A session that a test locks.
class ManualSessionLock final : public SessionLock
{
public:
    void watch(std::function<void()> locked) override { watcher = std::move(locked); }
    void lock()
    {
        if (watcher)
            watcher();
    }

    std::function<void()> watcher;
};

/// A nearby share that lists the phones the test gives it and records what it was asked to send.
class ScriptedNearbyShare final : public NearbyShare
{
public:
    Service service() const override { return kind; }
    Availability availability() override { return state; }
    Outcome send(const QStringList& files, const QString& device) override
    {
        sent.append({files, device});
        return answer;
    }

    Service kind = Service::KdeConnect;
    Availability state;
    Outcome answer = Outcome::Sent;
    QList<QPair<QStringList, QString>> sent;
};

/// A phone on a cable whose state the test sets, and whose camera is the test's.
class ScriptedPhoneWatcher final : public PhoneWatcher
{
public:
    State state() const override { return m_state; }
    QString deviceName() const override { return m_name; }
    void start() override { ++started; }
    void stop() override {}
    void refresh() override { ++refreshed; }
    std::shared_ptr<CameraSource> camera() override { return m_state == State::Ready ? phoneCamera : nullptr; }
    QString nameOfMountedPhone(const QString& folder) override { return mountedPhones.value(folder); }

    void set(State state, const QString& name = {})
    {
        m_state = state;
        m_name = name;
        Q_EMIT stateChanged();
    }

    std::shared_ptr<CameraSource> phoneCamera;
    QHash<QString, QString> mountedPhones;
    int started = 0;
    int refreshed = 0;

private:
    State m_state = State::NoDevice;
    QString m_name;
};

/// Every platform service, faked, for a page or a window under test.
struct FakeServices
{
    MemorySecretStore secrets;
    RecordingWorkspace workspace;
    FolderTrash trash;
    MemoryClipboard clipboard;
    FixedVolumes volumes;
    FixedAppearance appearance;
    RecordingHandoff handoff;
    ScriptedOwnerCheck ownerCheck;
    ManualSessionLock sessionLock;
    ScriptedNearbyShare nearbyShare;
    ScriptedPhoneWatcher phones;

    Services services()
    {
        return Services{secrets, workspace,  trash,       clipboard,   volumes, appearance,
                        handoff, ownerCheck, sessionLock, nearbyShare, phones};
    }
};

} // namespace nuvrel::test
