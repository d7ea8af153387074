#pragma once

// Qt strings as GoogleTest prints them in a failure: readable text, not bytes.

#include <QString>

#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}
