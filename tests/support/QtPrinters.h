#pragma once

// Qt strings as GoogleTest prints them in a failure: readable text, not bytes.

#include <QDateTime>
#include <QString>

#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QDateTime& date, std::ostream* out)
{
    *out << (date.isValid() ? date.toString(Qt::ISODateWithMs).toStdString() : std::string("(no date)"));
}
