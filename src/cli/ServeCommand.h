#pragma once

#include "cli/CommandLine.h"

namespace nuvrel::cli {

/// nuvrel-cli serve FILE… [--address A] [--port P]: serves the files (a folder as one zip archive) to
/// a phone's browser on the local network, shows the address and its QR code, tells each download,
/// and stops on Ctrl+C.
int runServe(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
