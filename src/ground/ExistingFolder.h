#pragma once

#include <QString>

namespace nuvrel {

/// The deepest part of `path` that exists, resolved (links followed): where a folder still to be made
/// would lie. Empty when nothing of it exists.
QString nearestExistingPath(const QString& path);

} // namespace nuvrel
