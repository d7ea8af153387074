#pragma once

// What the lightener's routes share: checking a source, naming and copying outputs. Private to the
// engine.

#include <QString>

#include <atomic>

namespace nuvrel::lighten {

/// Throws a FileError unless `path` is a regular file that can be read.
void checkSource(const QString& path);
/// The name less its last extension ("IMG_0001.HEIC" → "IMG_0001"; ".profile" stays whole).
QString stem(const QString& path);
/// A copy of `source` named `name` in `folder` ("name-2" when taken); returns its path.
QString copyInto(const QString& source, const QString& folder, const QString& name);

inline bool isCancelled(const std::atomic<bool>* cancel)
{
    return cancel && cancel->load(std::memory_order_relaxed);
}

} // namespace nuvrel::lighten
