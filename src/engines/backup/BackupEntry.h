#pragma once

#include "engines/backup/MBFileInfo.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace nuvrel {

/// One file of a backup, as its index lists it.
struct BackupEntry
{
    QString fileID;                       ///< 40 lowercase hexadecimal digits naming the stored copy
    QString domain;                       ///< "CameraRollDomain", "HomeDomain", "AppDomain-…"
    QString path;                         ///< relative to the domain's root, "/"-separated
    std::optional<QByteArray> blob;       ///< an index row's keyed archive, decoded on demand
    std::optional<MBFileInfoBox> preMeta; ///< the facts when known already: read at listing, or given by
                                          ///< the oldest index layout

    /// The file's facts: preMeta, else the parsed blob, else the default record. Computed on each call.
    MBFileInfo meta() const;

    /// The last component of `path`: the name the file had on the phone.
    QString fileName() const;

    /// `path` made safe to append to a folder: no empty, "." or ".." component, no leading "/".
    /// A hostile index cannot send an extracted file outside the folder it is extracted to.
    QString safeRelativePath() const;

    /// Whether a text is a well-formed file identifier (40 lowercase hexadecimal digits), the only form
    /// ever used to build a path inside a backup folder.
    static bool isValidFileID(QStringView fileID);

    friend bool operator==(const BackupEntry&, const BackupEntry&) = default;
};

} // namespace nuvrel
