#pragma once

#include <QFile>
#include <QString>

#include <optional>

namespace nuvrel {

/// How a file to read is checked before a byte of it is read.
struct RegularFileRules
{
    /// Refused when larger: for files read whole into memory.
    std::optional<qint64> maxSize;
    /// A symbolic link at `path` is refused instead of followed (a backup holds none).
    bool noFollow = false;
};

/// Opens `path` for reading only when it is a regular file. A FIFO or a device would block the reader
/// forever or never end; they are refused without waiting, as are files over `rules.maxSize`. On
/// refusal `file` stays closed and errno says why (ENOENT, EACCES, ELOOP for a link, EINVAL for a
/// special file, EFBIG for a size).
bool openRegularFile(QFile& file, const QString& path, const RegularFileRules& rules = {});

} // namespace nuvrel
