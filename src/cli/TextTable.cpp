#include "cli/TextTable.h"

namespace nuvrel::cli {

namespace {

// Columns are counted in characters a terminal shows, not in UTF-16 units.
qsizetype displayWidth(const QString& text)
{
    return text.toUcs4().size();
}

} // namespace

void TextTable::print(QTextStream& out) const
{
    QList<qsizetype> widths;
    for (const QStringList& row : m_rows) {
        for (qsizetype column = 0; column < row.size(); ++column) {
            if (widths.size() <= column)
                widths.append(0);
            widths[column] = std::max(widths[column], displayWidth(row[column]));
        }
    }
    for (const QStringList& row : m_rows) {
        QString line;
        for (qsizetype column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size())
                line += QString(widths[column] - displayWidth(row[column]) + 2, u' ');
        }
        out << line << '\n';
    }
}

} // namespace nuvrel::cli
