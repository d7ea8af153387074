#pragma once

#include <QList>
#include <QStringList>
#include <QTextStream>

namespace nuvrel::cli {

/// `text` with its control characters shown escaped (\e, \r, \x07…): names and texts from a
/// backup or a database must never reach a terminal raw, where an escape sequence would act. Line
/// breaks are kept when `keepLineBreaks`.
QString escapedControls(const QString& text, bool keepLineBreaks = false);

/// `text` as a JSON string, quotes included, escaped as JSON escapes: for output written piece by
/// piece, where a whole document in memory would cost many times the data.
QString jsonQuoted(QStringView text);

/// Whether standard error is a terminal, where progress is redrawn in place.
bool stderrIsTerminal();

/// Rows of text printed in aligned columns, two spaces apart; cells are escaped as above.
class TextTable final
{
public:
    void addRow(QStringList cells);
    void print(QTextStream& out) const;

private:
    QList<QStringList> m_rows;
};

} // namespace nuvrel::cli
