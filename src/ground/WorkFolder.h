#pragma once

#include <QString>

#include <memory>

class QLockFile;

namespace nuvrel {

/// A private folder of the program's for data that must not outlive its use: a decrypted index, a
/// copy of a chat database. It lies under root()/<group>/, owner-only, and holds a lock file for as
/// long as the object lives, so that removeAbandoned() at a later start deletes what a crash or a
/// kill left, and never the live folder of another running Nuvrel (the window and the command line
/// share the root).
///
///     WorkFolder work(QStringLiteral("chatdb"));
///     copy(source, work.path() + "/chat.db");
///     …
///     work.remove();
class WorkFolder final
{
public:
    /// Makes a fresh folder in `group` and locks it; throws FileError when it cannot be made.
    explicit WorkFolder(const QString& group);
    /// Unlocks. The folder stays until remove(): files in it may still be open in another program.
    ~WorkFolder();
    Q_DISABLE_COPY_MOVE(WorkFolder)

    QString path() const { return m_path; }

    /// Deletes the folder with its content, and its group's folder when nothing else is left in it.
    void remove();

    /// <data>/Nuvrel/Temp.
    static QString root();
    /// Deletes the folders under root() that no running program holds; returns how many. Call it
    /// once at start, off the GUI thread.
    static int removeAbandoned();

private:
    QString m_path;
    std::unique_ptr<QLockFile> m_lock;
};

} // namespace nuvrel
