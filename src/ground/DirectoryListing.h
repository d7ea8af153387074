#pragma once

#include <QString>
#include <QStringList>

#include <functional>

namespace nuvrel {

/// The names in one folder, or the system's reason (an errno value) for not giving them.
struct DirectoryListing
{
    QStringList names; ///< every entry but "." and "..", in the order the system returned them
    int error = 0;     ///< 0 on success
};

/// Lists a folder; a seam, so that tests can play refusals that root cannot provoke.
using DirectoryLister = std::function<DirectoryListing(const QString& folder)>;

/// The real file system, through opendir so that the errno of a refusal is kept.
DirectoryListing listDirectory(const QString& folder);

} // namespace nuvrel
