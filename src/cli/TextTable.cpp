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

namespace {

// The one definition of both escapings, on UTF-8 bytes: the streamed listings write bytes, and the
// QString forms below go through them.
void appendEscapedBytes(QByteArray& out, QByteArrayView utf8, bool keepLineBreaks)
{
    static constexpr char hex[] = "0123456789abcdef";
    qsizetype plain = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        // C1 controls (U+0080 to U+009F) are 0xC2 0x80 to 0xC2 0x9F.
        const bool c1 = c == 0xC2 && i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xE0) == 0x80;
        if ((c >= 0x20 && c != 0x7F && !c1) || (c == '\n' && keepLineBreaks))
            continue;
        out.append(utf8.sliced(plain, i - plain));
        switch (c) {
        case '\n': out.append("\\n"); break;
        case '\r': out.append("\\r"); break;
        case '\t': out.append("\\t"); break;
        case 0x1B: out.append("\\e"); break;
        default: {
            const auto code = c1 ? static_cast<unsigned char>(utf8[++i]) : c;
            out.append("\\x").append(hex[code >> 4]).append(hex[code & 0xF]);
        }
        }
        plain = i + 1;
    }
    out.append(utf8.sliced(plain));
}

void appendJsonBytes(QByteArray& out, QByteArrayView utf8)
{
    static constexpr char hex[] = "0123456789abcdef";
    out.append('"');
    qsizetype plain = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c != '"' && c != '\\' && c != 0x7F)
            continue;
        out.append(utf8.sliced(plain, i - plain));
        plain = i + 1;
        switch (c) {
        case '"': out.append("\\\""); break;
        case '\\': out.append("\\\\"); break;
        case '\n': out.append("\\n"); break;
        case '\r': out.append("\\r"); break;
        case '\t': out.append("\\t"); break;
        default: out.append("\\u00").append(hex[c >> 4]).append(hex[c & 0xF]);
        }
    }
    out.append(utf8.sliced(plain)).append('"');
}

} // namespace

QString escapedControls(const QString& text, bool keepLineBreaks)
{
    QByteArray shown;
    appendEscapedBytes(shown, text.toUtf8(), keepLineBreaks);
    return QString::fromUtf8(shown);
}

QString jsonQuoted(QStringView text)
{
    QByteArray quoted;
    appendJsonBytes(quoted, text.toUtf8());
    return QString::fromUtf8(quoted);
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
    appendEscapedBytes(m_buffer, utf8, false);
}

void Utf8Output::appendJson(QByteArrayView utf8)
{
    appendJsonBytes(m_buffer, utf8);
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
