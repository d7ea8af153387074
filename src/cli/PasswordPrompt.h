#pragma once

#include <QString>
#include <QTextStream>

namespace nuvrel::cli {

/// The password of --password-stdin. On a terminal, asked for on `err` and typed without echo (the
/// terminal is put back as it was, even when the user interrupts); from a pipe, its first line.
QString readPasswordFromStdin(QTextStream& err);

} // namespace nuvrel::cli
