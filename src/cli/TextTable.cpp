#include "cli/TextTable.h"

#include <unistd.h>

namespace nuvrel::cli {

namespace {

// Columns are counted in characters a terminal shows, not in UTF-16 units.
qsizetype displayWidth(const QString& text)
{
    return text.toUcs4().size();
}

} // namespace

bool stderrIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

QString escapedControls(const QString& text, bool keepLineBreaks)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x20 && u != 0x7F && (u < 0x80 || u > 0x9F)) {
            shown += c;
            continue;
        }
        switch (u) {
        case u'\n': shown += keepLineBreaks ? QStringLiteral("\n") : QStringLiteral("\\n"); break;
        case u'\r': shown += QStringLiteral("\\r"); break;
        case u'\t': shown += QStringLiteral("\\t"); break;
        case 0x1B: shown += QStringLiteral("\\e"); break;
        default: shown += QStringLiteral("\\x%1").arg(int(u), 2, 16, QLatin1Char('0'));
        }
    }
    return shown;
}

QString jsonQuoted(QStringView text)
{
    QString quoted;
    quoted.reserve(text.size() + 2);
    quoted += u'"';
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'"': quoted += QStringLiteral("\\\""); break;
        case u'\\': quoted += QStringLiteral("\\\\"); break;
        case u'\n': quoted += QStringLiteral("\\n"); break;
        case u'\r': quoted += QStringLiteral("\\r"); break;
        case u'\t': quoted += QStringLiteral("\\t"); break;
        default:
            if (c.unicode() < 0x20 || c.unicode() == 0x7F)
                quoted += QStringLiteral("\\u%1").arg(int(c.unicode()), 4, 16, QLatin1Char('0'));
            else
                quoted += c;
        }
    }
    quoted += u'"';
    return quoted;
}

void TextTable::addRow(QStringList cells)
{
    for (QString& cell : cells)
        cell = escapedControls(cell);
    m_rows.append(std::move(cells));
}

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
