#pragma once

#include "cli/CommandLine.h"

namespace nuvrel::cli {

/// nuvrel-cli duplicates FOLDER [--similar] [--trash --yes]: the groups of identical files (and of
/// similar photos), the copy to keep first; with --trash, the other copies of identical files go to
/// the trash.
int runDuplicates(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
