#pragma once

#include "formats/plist/PV.h"

#include <QByteArray>
#include <QDateTime>

#include <optional>

namespace nuvrel {

/// The description of one backed-up file, read from the keyed archive in a manifest row.
struct MBFileInfo
{
    qint64 size = 0;
    int protectionClass = 0;
    int mode = 0; ///< POSIX mode bits as stored
    std::optional<QDateTime> mtime;
    std::optional<QByteArray> encKey; ///< the wrapped per-file key of an encrypted backup

    /// Reads a blob; nothing when it is not a keyed archive with a root record dictionary.
    /// Walks the container without building the whole tree: manifests hold hundreds of thousands.
    static std::optional<MBFileInfo> parse(const QByteArray& data);

    /// The same reading over an already decoded archive (the top object of the blob).
    static std::optional<MBFileInfo> fromArchive(const PV& archive);

    friend bool operator==(const MBFileInfo&, const MBFileInfo&) = default;
};

/// Lets a backup entry carry a file description known in advance (old manifest format) as one field.
struct MBFileInfoBox
{
    MBFileInfo value;

    friend bool operator==(const MBFileInfoBox&, const MBFileInfoBox&) = default;
};

} // namespace nuvrel
