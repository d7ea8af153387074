#pragma once

#include "cli/CommandLine.h"

namespace nuvrel::cli {

/// nuvrel-cli photo-import --from FOLDER [--to DIR] [--photos] [--videos] [--since DAY] [--until DAY]:
/// the photos and videos of a phone mounted as a folder or of a camera's card, into month folders,
/// each once (the history is the window's).
int runPhotoImport(const CommandLine& line, QTextStream& out, QTextStream& err);

/// nuvrel-cli photos-library LIBRARY --to DIR: every photo and video of a Photos library package,
/// into month folders, each once.
int runPhotosLibrary(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
