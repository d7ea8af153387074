#include "L10nScan.h"

#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>

namespace nuvrel::l10nscan {

namespace {

class Lexer
{
public:
    Lexer(const QString& source, const QString& file)
        : m_src(source)
        , m_file(file)
    {}

    QList<Use> run()
    {
        while (m_pos < m_src.size()) {
            const QChar c = m_src[m_pos];
            if (c == u'/' && peek(1) == u'/')
                skipUntil(QStringLiteral("\n"));
            else if (c == u'/' && peek(1) == u'*')
                skipUntil(QStringLiteral("*/"));
            else if (c == u'"')
                readString();
            else if (c == u'\'' && !isDigitSeparator()) // 15'000 goes on as any character
                skipCharLiteral();
            else if (c == u'L' && !isIdentifierChar(peek(-1)) && !isIdentifierChar(peek(1)))
                tryLocalised(1);
            else if (c == u'L' && !isIdentifierChar(peek(-1)) && QStringView(m_src).sliced(m_pos).startsWith(u"LKey") &&
                     !isIdentifierChar(peek(4)))
                tryLocalised(4);
            else if (c == u'L' && peek(1) == u'N' && !isIdentifierChar(peek(-1)) && !isIdentifierChar(peek(2)))
                tryLocalised(2, true);
            else
                advance();
        }
        return m_uses;
    }

private:
    // 15'000 and 0xFF'FF: a quote inside a number is no character literal (u'x', L'x' and u8'x' are).
    bool isDigitSeparator() const
    {
        qsizetype start = m_pos;
        while (start > 0 && (m_src[start - 1].isLetterOrNumber() || m_src[start - 1] == u'\''))
            --start;
        return start < m_pos && m_src[start].isDigit();
    }
    static bool isIdentifierChar(QChar c) { return c.isLetterOrNumber() || c == u'_'; }
    QChar peek(qsizetype delta) const
    {
        const qsizetype at = m_pos + delta;
        return at >= 0 && at < m_src.size() ? m_src[at] : QChar();
    }
    void advance()
    {
        if (m_src[m_pos] == u'\n')
            ++m_line;
        ++m_pos;
    }
    void skipSpace()
    {
        while (m_pos < m_src.size() && m_src[m_pos].isSpace())
            advance();
    }
    void skipUntil(const QString& end)
    {
        while (m_pos < m_src.size() && !QStringView(m_src).sliced(m_pos).startsWith(end))
            advance();
        for (qsizetype i = 0; i < end.size() && m_pos < m_src.size(); ++i)
            advance();
    }
    void skipCharLiteral()
    {
        advance();
        while (m_pos < m_src.size() && m_src[m_pos] != u'\'') {
            if (m_src[m_pos] == u'\\')
                advance();
            if (m_pos < m_src.size())
                advance();
        }
        if (m_pos < m_src.size())
            advance();
    }
    // Reads one string literal at m_pos and returns its unescaped text.
    QString readString()
    {
        QString text;
        advance();
        while (m_pos < m_src.size() && m_src[m_pos] != u'"') {
            QChar c = m_src[m_pos];
            if (c == u'\\' && m_pos + 1 < m_src.size()) {
                advance();
                switch (m_src[m_pos].unicode()) {
                case u'n': c = u'\n'; break;
                case u't': c = u'\t'; break;
                default: c = m_src[m_pos]; break;
                }
            }
            text.append(c);
            advance();
        }
        if (m_pos < m_src.size())
            advance();
        return text;
    }
    // L("…"), LKey("…") and LN("…", count): the name is `length` characters long.
    void tryLocalised(int length, bool plural = false)
    {
        const int line = m_line;
        for (int i = 0; i < length; ++i)
            advance();
        skipSpace();
        if (m_pos >= m_src.size() || m_src[m_pos] != u'(')
            return;
        advance();
        skipSpace();
        if (m_pos >= m_src.size() || m_src[m_pos] != u'"')
            return;
        QString text;
        while (m_pos < m_src.size() && m_src[m_pos] == u'"') {
            text += readString();
            skipSpace();
        }
        m_uses.append({text, m_file, line, plural});
    }

    const QString& m_src;
    QString m_file;
    qsizetype m_pos = 0;
    int m_line = 1;
    QList<Use> m_uses;
};

} // namespace

QList<Use> scanSource(const QString& source, const QString& fileName)
{
    return Lexer(source, fileName).run();
}

QList<Use> scanTree(const QString& folder)
{
    QList<Use> uses;
    QStringList files;
    QDirIterator it(folder, {QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    std::sort(files.begin(), files.end());
    for (const QString& path : files) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            uses += scanSource(QString::fromUtf8(file.readAll()), path);
    }
    return uses;
}

QString placeholderSignature(const QString& text)
{
    static const QRegularExpression numbered(QStringLiteral("%(\\d+)\\$@"));
    QStringList numbers;
    for (const QRegularExpressionMatch& match : numbered.globalMatch(text))
        numbers.append(match.captured(1));
    std::sort(numbers.begin(), numbers.end());
    QString withoutNumbered = text;
    withoutNumbered.remove(numbered);
    return QStringLiteral("%1 × %@; %2").arg(withoutNumbered.count(QStringLiteral("%@"))).arg(numbers.join(u','));
}

} // namespace nuvrel::l10nscan
