#pragma once

#include <QByteArray>
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

/// Output gathered as UTF-8 and handed to the stream in chunks of a few dozen kilobytes: a listing of
/// hundreds of thousands of lines written piece by piece through a text stream costs more than reading
/// it. Bytes that are no valid UTF-8 (a damaged index) are repaired (U+FFFD) on their way out.
class Utf8Output final
{
public:
    explicit Utf8Output(QTextStream& out)
        : m_out(out)
    {
        m_buffer.reserve(chunkBytes + 4096);
    }
    ~Utf8Output() { flush(); }
    Q_DISABLE_COPY_MOVE(Utf8Output)

    QByteArray& buffer() { return m_buffer; }
    /// Called at the end of each line: hands the chunk over once it is full, never inside a line.
    void lineDone()
    {
        if (m_buffer.size() >= chunkBytes)
            flush();
    }
    void flush();

    /// `utf8` with its control characters escaped as escapedControls() escapes them.
    void appendEscaped(QByteArrayView utf8);
    /// `utf8` as a JSON string, quotes included.
    void appendJson(QByteArrayView utf8);

private:
    // Below the allocator's threshold for mapping pages of their own.
    static constexpr qsizetype chunkBytes = qsizetype(48) * 1024;
    QTextStream& m_out;
    QByteArray m_buffer;
};

/// How many columns `text` takes on a terminal: characters, not UTF-16 units.
qsizetype displayWidth(const QString& text);

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
