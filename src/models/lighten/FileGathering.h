#pragma once

#include <QStringList>

namespace nuvrel {

/// Files dropped or picked, their folders expanded.
struct GatheredFiles
{
    QStringList files;          ///< regular files, in the order given, a folder's as a file manager sorts them
    int skippedPackages = 0;    ///< bundles met inside folders and not entered (.app, .photoslibrary…)
    bool photosLibrary = false; ///< a Photos library was given itself, and not read
    bool truncated = false;     ///< more files than `maxFiles` were there
};

/// Expands folders into their files, at any depth: hidden files and folders are skipped, links are
/// not followed (a folder linked into itself would never end), bundles (folders the Finder shows as
/// one file: applications, Photos libraries, Pages documents…) are counted but not entered, and
/// gathering stops at `maxFiles`. Files given directly are taken as they are.
GatheredFiles gatherFiles(const QStringList& paths, int maxFiles = 4999);

} // namespace nuvrel
