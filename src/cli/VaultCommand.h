#pragma once

#include "cli/CommandLine.h"

namespace nuvrel::cli {

/// nuvrel-cli vault list | add FILE… | open NAME | restore NAME [--to DIR] | delete NAME --yes | lock:
/// the vault, after the same owner check as the window (asked on the terminal when no desktop agent
/// serves the session). An entry is named by its name, or by its id where names repeat.
int runVault(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
