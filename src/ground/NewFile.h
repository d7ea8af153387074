#pragma once

#include "ground/FreeName.h"

#include <QDateTime>
#include <QFile>
#include <QString>

#include <functional>
#include <optional>

namespace nuvrel {

/// A file written under a temporary name in its destination folder, then given a free final name:
/// an interrupted write never leaves a truncated file under a final name, and an existing file is
/// never replaced, not even by a writer racing for the same name. Throws FileError.
///
///     NewFile out(folder + "/IMG_0001.JPG", FreeNameStyle::Parenthesised);
///     write(out.device());
///     QString written = out.commit(mtime); // "IMG_0001 (2).JPG" if the name was taken
///
/// Destroyed without commit(), the temporary file is removed.
class NewFile final
{
public:
    /// Creates the destination's folder (with its parents) and the temporary file in it.
    NewFile(const QString& destination, FreeNameStyle style, QFileDevice::Permissions permissions = defaultPermissions);
    ~NewFile();
    Q_DISABLE_COPY_MOVE(NewFile)

    static constexpr QFileDevice::Permissions defaultPermissions =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther;

    /// Where the bytes go until commit().
    QFileDevice& device();
    QString temporaryPath() const;
    /// Closes the device and gives the temporary path to a writer that writes by name (another
    /// program, or a library that replaces the file whole); commit() then takes whatever that path
    /// holds. The file is still removed if commit() is never called.
    QString handOver();

    /// Flushes, sets the modification time (when given), and links the file to the destination's
    /// free name; returns that name.
    QString commit(const std::optional<QDateTime>& modified = std::nullopt);
    /// The same, but a taken name is followed by `numbered(n)` for n = 2, 3…: a name in the same folder,
    /// for a caller whose numbering is not a FreeNameStyle.
    QString commit(const std::optional<QDateTime>& modified, const std::function<QString(int n)>& numbered);
    /// The same, but in place of whatever has the destination's name, in one step: a reader sees the old
    /// file or the new one, never half of either. A link there is replaced, not followed. Only for a
    /// user who asked for it (nuvrel-cli --force).
    QString commitReplacing(const std::optional<QDateTime>& modified = std::nullopt);

private:
    void flushAndStamp(const std::optional<QDateTime>& modified);

    QString m_destination;
    FreeNameStyle m_style;
    QFile m_file;
    bool m_committed = false;
};

} // namespace nuvrel
