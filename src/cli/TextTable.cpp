#include "cli/TextTable.h"

#include <QIODevice>

#include <algorithm>

#include <unistd.h>

namespace nuvrel::cli {

qsizetype displayWidth(const QString& text)
{
    // One column per code point: the second half of a pair adds none.
    return text.size() - std::count_if(text.cbegin(), text.cend(), [](QChar c) { return c.isLowSurrogate(); });
}

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

void Utf8Output::flush()
{
    if (m_buffer.isEmpty())
        return;
    if (QIODevice* device = m_out.device(); device && QByteArrayView(m_buffer).isValidUtf8()) {
        m_out.flush(); // what the stream holds goes first
        device->write(m_buffer);
    } else {
        m_out << QString::fromUtf8(m_buffer);
    }
    m_buffer.clear();
}

void Utf8Output::appendEscaped(QByteArrayView utf8)
{
    static constexpr char hex[] = "0123456789abcdef";
    qsizetype plain = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        // C1 controls (U+0080 to U+009F) are 0xC2 0x80 to 0xC2 0x9F.
        const bool c1 = c == 0xC2 && i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xE0) == 0x80;
        if (c >= 0x20 && c != 0x7F && !c1)
            continue;
        m_buffer.append(utf8.sliced(plain, i - plain));
        switch (c) {
        case '\n': m_buffer.append("\\n"); break;
        case '\r': m_buffer.append("\\r"); break;
        case '\t': m_buffer.append("\\t"); break;
        case 0x1B: m_buffer.append("\\e"); break;
        default: {
            const auto code = c1 ? static_cast<unsigned char>(utf8[++i]) : c;
            m_buffer.append("\\x").append(hex[code >> 4]).append(hex[code & 0xF]);
        }
        }
        plain = i + 1;
    }
    m_buffer.append(utf8.sliced(plain));
}

void Utf8Output::appendJson(QByteArrayView utf8)
{
    static constexpr char hex[] = "0123456789abcdef";
    m_buffer.append('"');
    qsizetype plain = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c != '"' && c != '\\' && c != 0x7F)
            continue;
        m_buffer.append(utf8.sliced(plain, i - plain));
        plain = i + 1;
        switch (c) {
        case '"': m_buffer.append("\\\""); break;
        case '\\': m_buffer.append("\\\\"); break;
        case '\n': m_buffer.append("\\n"); break;
        case '\r': m_buffer.append("\\r"); break;
        case '\t': m_buffer.append("\\t"); break;
        default: m_buffer.append("\\u00").append(hex[c >> 4]).append(hex[c & 0xF]);
        }
    }
    m_buffer.append(utf8.sliced(plain)).append('"');
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
