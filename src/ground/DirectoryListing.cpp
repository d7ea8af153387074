#include "ground/DirectoryListing.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <dirent.h>

namespace nuvrel {

DirectoryListing listDirectory(const QString& folder)
{
    DirectoryListing listing;
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    if (!dir) {
        listing.error = errno;
        return listing;
    }
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            listing.names.append(QFile::decodeName(entry->d_name));
        errno = 0;
    }
    listing.error = errno;
    ::closedir(dir);
    return listing;
}

} // namespace nuvrel
