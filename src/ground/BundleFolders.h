#pragma once

#include <QString>

namespace nuvrel {

/// Whether a folder is a bundle, from its name: a folder that macOS's Finder shows as one file (an
/// application, a Photos library, a Pages document…). Walks over a user's folders count such a
/// folder and do not enter it.
bool isBundleFolder(const QString& name);

/// Whether a folder is a Photos library.
bool isPhotosLibrary(const QString& name);

} // namespace nuvrel
