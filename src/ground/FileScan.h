#pragma once

// Reading the metadata and bytes of many files with as few system calls as care allows: scans that
// visit tens of thousands of files spend more time in the kernel than in their own work.

#include <QDateTime>
#include <QString>

#include <optional>
#include <utility>

namespace nuvrel {

/// What one look at a directory entry tells, without following a link.
struct EntryStatus
{
    enum class Type { File, Folder, Other };

    Type type = Type::Other;
    qint64 size = 0;
    quint64 device = 0;
    quint64 inode = 0;
    QDateTime born;     ///< the creation date, or the modification date where the file system keeps none
    QDateTime modified; ///< to the millisecond, as QFileInfo gives it; both in UTC
};

/// The entry at `path` itself (a link is a link), in one system call; nothing when it cannot be told.
std::optional<EntryStatus> entryStatus(const QString& path);

/// A regular file open for reading at chosen offsets. Opening refuses links, FIFOs and devices
/// without waiting; reads are positioned, so nothing is spent on seeking.
class FileReader final
{
public:
    FileReader() = default;
    explicit FileReader(const QString& path) { open(path); }
    ~FileReader() { close(); }
    FileReader(FileReader&& other) noexcept
        : m_fd(std::exchange(other.m_fd, -1))
    {}
    FileReader& operator=(FileReader&& other) noexcept
    {
        if (this != &other) {
            close();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    bool open(const QString& path);
    bool isOpen() const { return m_fd >= 0; }
    void close();
    /// Exactly `length` bytes at `offset`; false on a short read or an error.
    bool readAt(qint64 offset, char* into, qint64 length) const;

private:
    int m_fd = -1;
};

} // namespace nuvrel
