#pragma once

#include "engines/backup/BackupEntry.h"

#include <QByteArrayView>
#include <QList>

namespace nuvrel {

/// The index of the oldest backup layout, Manifest.mbdb: one record per item, big-endian numbers and
/// length-prefixed strings. Only regular files become entries; their identifier is the SHA-1 of
/// "domain-path", the name of their stored copy.
class ManifestMbdb final
{
public:
    ManifestMbdb() = delete;

    /// The entries of the file; a truncated record ends the list. An empty list means "not an index".
    static QList<BackupEntry> parse(QByteArrayView data);
};

} // namespace nuvrel
