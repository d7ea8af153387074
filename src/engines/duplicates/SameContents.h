#pragma once

// The exact phase's heavy part, private to the engine: files of one size and the same edges split
// by comparing their bytes, read side by side.

#include <QList>
#include <QString>

#include <atomic>

namespace nuvrel {

/// Files found to agree, and the fingerprint of what they agree on.
struct SameContent
{
    QString fingerprint;
    QList<qsizetype> members;
};

/// The classes of `paths` (all of `size` bytes) whose contents agree where the fingerprint looks: the
/// whole file up to DuplicateScanner::wholeHashLimit, the three samples above it. Classes of one file
/// are left out; each class lists indexes into `paths`, ascending, classes in the order of their first,
/// with the fingerprint DuplicateScanner::fingerprint gives each member, taken as the bytes were compared.
/// Files that cannot be read through are left out and counted in `failures`.
QList<SameContent> sameContents(const QList<QString>& paths, qint64 size, int& failures,
                                const std::atomic<bool>* cancel);

} // namespace nuvrel
