#pragma once

#include "engines/photobackup/LibraryBackup.h"
#include "platform/Services.h"

#include <QDateTime>
#include <QObject>

#include <functional>

namespace nuvrel {

class Job;

/// The "Depuis une photothèque" half of the backup page: a Photos library package (one copied from a
/// Mac, on a disk) backed up whole into the month folders of the same destination as the import.
class PhotosLibraryBackup final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString package READ package WRITE setPackage NOTIFY stateChanged)
    Q_PROPERTY(QString status READ status NOTIFY stateChanged)
    Q_PROPERTY(double progress READ progress NOTIFY stateChanged)
    Q_PROPERTY(QDateTime finishedAt READ finishedAt NOTIFY stateChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY stateChanged)

public:
    enum class State { Idle, Checking, Running, Finished, EmptyLibrary, Failed };
    Q_ENUM(State)

    static constexpr qint64 progressIntervalMs = 200;

    explicit PhotosLibraryBackup(Services services, QObject* parent = nullptr);
    ~PhotosLibraryBackup() override;
    Q_DISABLE_COPY_MOVE(PhotosLibraryBackup)

    State state() const { return m_state; }
    QString package() const { return m_package; }
    void setPackage(const QString& package);
    /// What the page says under its buttons, in the language in force.
    QString status() const { return m_status ? m_status() : QString(); }
    double progress() const { return m_progress; }
    QDateTime finishedAt() const { return m_finishedAt; }
    bool busy() const;

    /// "Tout copier", and "Recommencer" after a run: checks the library, then copies what was not saved
    /// yet.
    Q_INVOKABLE void checkAndStart();
    /// Stops after the file in hand.
    Q_INVOKABLE void cancel();

Q_SIGNALS:
    void stateChanged();

private:
    using Text = std::function<QString()>;

    void setState(State state, Text status);

    Services m_services;
    Job* m_job;
    State m_state = State::Idle;
    QString m_package;
    Text m_status;
    double m_progress = 0;
    QDateTime m_finishedAt;
};

} // namespace nuvrel
