#pragma once

#include "cli/CommandLine.h"

#include <QTextStream>

namespace nuvrel::cli {

/// `nuvrel-cli files BACKUP`: lists the files of a backup; returns the exit code.
int runFiles(const CommandLine& line, QTextStream& out, QTextStream& err);

/// `nuvrel-cli extract BACKUP --to DIR`: copies files of a backup out; returns the exit code.
int runExtract(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
