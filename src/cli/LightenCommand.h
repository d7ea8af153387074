#pragma once

#include "cli/CommandLine.h"

namespace nuvrel::cli {

/// nuvrel-cli lighten FILE… --target T --to DIR: one smaller copy of each file, a line each.
int runLighten(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
