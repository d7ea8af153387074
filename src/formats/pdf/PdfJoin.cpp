#include "formats/pdf/PdfJoin.h"

#include <QHash>
#include <QRegularExpression>

#include <map>

namespace nuvrel {

namespace {

// One parsed document: each object's text before its stream, its stream bytes, and what names the
// page tree.
struct Document
{
    struct Object
    {
        QByteArray head;   ///< from after "N 0 obj" to "stream", or to "endobj" when there is none
        QByteArray stream; ///< the bytes between "stream\n" and "\nendstream", copied as they are
        bool hasStream = false;
    };
    std::map<int, Object> objects;
    int info = 0;
    int root = 0;
    int pages = 0;
    QList<int> kids;
};

std::optional<int> number(QByteArrayView text)
{
    bool ok = false;
    const int value = text.trimmed().toInt(&ok);
    return ok && value >= 0 ? std::optional(value) : std::nullopt;
}

// Where the name `key` stands in a dictionary's text, whole: "/Length" is not the start of "/Length1".
qsizetype keyAt(const QByteArray& text, QByteArrayView key)
{
    for (qsizetype at = text.indexOf(key); at >= 0; at = text.indexOf(key, at + 1)) {
        const qsizetype after = at + key.size();
        if (after >= text.size() || QByteArrayView(" \n\r\t/[<(").contains(text[after]))
            return at;
    }
    return -1;
}

// The number that `pattern` finds right after `key` in a dictionary's text.
std::optional<int> numberAfter(const QByteArray& text, QByteArrayView key, const QRegularExpression& pattern)
{
    const qsizetype at = keyAt(text, key);
    if (at < 0)
        return std::nullopt;
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(text.mid(at + key.size(), 24)));
    return match.hasMatch() ? number(match.captured(1).toLatin1()) : std::nullopt;
}

// The integer that follows `key` ("/Length 347").
std::optional<int> integerAfter(const QByteArray& text, QByteArrayView key)
{
    static const QRegularExpression pattern(QStringLiteral("^\\s*(\\d+)"));
    return numberAfter(text, key, pattern);
}

// The object that `key` refers to ("/Root 2 0 R").
std::optional<int> reference(const QByteArray& text, QByteArrayView key)
{
    static const QRegularExpression pattern(QStringLiteral("^\\s*(\\d+) 0 R"));
    return numberAfter(text, key, pattern);
}

std::optional<Document> parse(const QByteArray& pdf)
{
    // The cross-reference table at the end gives every object's offset.
    const qsizetype startxref = pdf.lastIndexOf("startxref");
    if (startxref < 0)
        return std::nullopt;
    const std::optional<int> xref = number(pdf.mid(startxref + 9, 24).split('\n').value(1));
    if (!xref || *xref >= pdf.size() || !pdf.mid(*xref).startsWith("xref"))
        return std::nullopt;
    const qsizetype trailer = pdf.indexOf("trailer", *xref);
    if (trailer < 0)
        return std::nullopt;
    const QList<QByteArray> table = pdf.mid(*xref, trailer - *xref).split('\n');
    // "xref", "0 SIZE", then one line per object.
    if (table.size() < 3)
        return std::nullopt;
    const QList<QByteArray> section = table[1].trimmed().split(' ');
    if (section.size() != 2 || section[0] != "0")
        return std::nullopt;
    const std::optional<int> size = number(section[1]);
    if (!size || table.size() < *size + 2)
        return std::nullopt;

    Document document;
    QHash<int, qsizetype> offsets;
    for (int n = 1; n < *size; ++n) {
        const QByteArray& line = table[n + 2];
        if (line.size() < 18 || line[17] != 'n')
            continue; // a free entry
        const std::optional<int> offset = number(line.left(10));
        if (!offset || *offset >= pdf.size())
            return std::nullopt;
        offsets.insert(n, *offset);
    }
    for (auto it = offsets.cbegin(); it != offsets.cend(); ++it) {
        const QByteArray header = QByteArray::number(it.key()) + " 0 obj";
        if (!pdf.mid(it.value(), header.size()).startsWith(header))
            return std::nullopt;
        const qsizetype start = it.value() + header.size();
        const qsizetype end = pdf.indexOf("endobj", start);
        const qsizetype streamAt = pdf.indexOf("\nstream\n", start);
        Document::Object object;
        if (streamAt >= 0 && (end < 0 || streamAt < end)) {
            object.head = pdf.mid(start, streamAt - start);
            object.hasStream = true;
        } else if (end >= 0) {
            object.head = pdf.mid(start, end - start);
        } else {
            return std::nullopt;
        }
        document.objects.emplace(it.key(), std::move(object));
    }
    // Stream lengths are objects of their own ("/Length 11 0 R"), read once every head is known.
    for (auto& [n, object] : document.objects) {
        if (!object.hasStream)
            continue;
        std::optional<int> length;
        if (const std::optional<int> lengthObject = reference(object.head, "/Length"))
            length =
                document.objects.count(*lengthObject) ? number(document.objects[*lengthObject].head) : std::nullopt;
        else
            length = integerAfter(object.head, "/Length");
        const qsizetype data = offsets.value(n) + QByteArray::number(n).size() + 6 + object.head.size() + 8;
        if (!length || data + *length > pdf.size() || !pdf.mid(data + *length, 11).contains("endstream"))
            return std::nullopt;
        object.stream = pdf.mid(data, *length);
    }

    const QByteArray trailerText = pdf.mid(trailer, startxref - trailer);
    const std::optional<int> root = reference(trailerText, "/Root");
    const std::optional<int> info = reference(trailerText, "/Info");
    if (!root || !document.objects.count(*root))
        return std::nullopt;
    document.root = *root;
    document.info = info.value_or(0);
    const std::optional<int> pages = reference(document.objects[*root].head, "/Pages");
    if (!pages || !document.objects.count(*pages))
        return std::nullopt;
    document.pages = *pages;
    const QByteArray& tree = document.objects[*pages].head;
    const qsizetype kidsAt = keyAt(tree, "/Kids");
    const qsizetype open = tree.indexOf('[', kidsAt);
    const qsizetype close = tree.indexOf(']', open);
    if (kidsAt < 0 || open < 0 || close < 0)
        return std::nullopt;
    static const QRegularExpression kid(QStringLiteral("(\\d+) 0 R"));
    for (const QRegularExpressionMatch& match :
         kid.globalMatch(QString::fromLatin1(tree.mid(open + 1, close - open - 1)))) {
        const std::optional<int> page = number(match.captured(1).toLatin1());
        if (!page || !document.objects.count(*page))
            return std::nullopt;
        document.kids.append(*page);
    }
    return document;
}

// `text` with every reference "N 0 R" renumbered through `renumber`.
QByteArray renumbered(const QByteArray& text, const std::function<int(int)>& renumber)
{
    static const QRegularExpression ref(QStringLiteral("(\\d+) 0 R\\b"));
    const QString latin = QString::fromLatin1(text);
    QByteArray out;
    out.reserve(text.size() + 16);
    qsizetype last = 0;
    for (const QRegularExpressionMatch& match : ref.globalMatch(latin)) {
        out += text.mid(last, match.capturedStart(0) - last);
        out += QByteArray::number(renumber(match.captured(1).toInt())) + " 0 R";
        last = match.capturedEnd(0);
    }
    out += text.mid(last);
    return out;
}

} // namespace

std::optional<QByteArray> joinPdfs(const QList<QByteArray>& parts)
{
    if (parts.isEmpty())
        return std::nullopt;
    QList<Document> documents;
    for (const QByteArray& part : parts) {
        std::optional<Document> document = parse(part);
        if (!document)
            return std::nullopt;
        documents.append(std::move(*document));
    }
    const Document& first = documents.front();

    // Every object of every part, renumbered after those before it; the later parts' catalogues, page
    // trees and information dictionaries give way to the first part's.
    std::map<int, QByteArray> objects; // number → whole object text, "N 0 obj" to "endobj"
    QList<int> kids;
    int next = 0;
    for (qsizetype p = 0; p < documents.size(); ++p) {
        const Document& document = documents[p];
        const int base = next;
        const auto renumber = [&](int n) {
            if (p > 0 && n == document.pages)
                return first.pages;
            return n + base;
        };
        for (const auto& [n, object] : document.objects) {
            if (p > 0 && (n == document.pages || n == document.root || n == document.info))
                continue;
            const int target = renumber(n);
            QByteArray text = QByteArray::number(target) + " 0 obj" + renumbered(object.head, renumber);
            if (object.hasStream)
                text += "\nstream\n" + object.stream + "\nendstream\n";
            text += "endobj\n";
            objects[target] = std::move(text);
            next = std::max(next, target);
        }
        for (const int kid : document.kids)
            kids.append(renumber(kid));
    }
    QByteArray tree = "\n<<\n/Type /Pages\n/Kids\n[\n";
    for (const int kid : std::as_const(kids))
        tree += QByteArray::number(kid) + " 0 R\n";
    tree += "]\n/Count " + QByteArray::number(kids.size()) + "\n/ProcSet [/PDF /Text /ImageB /ImageC]\n>>\n";
    objects[first.pages] = QByteArray::number(first.pages) + " 0 obj" + tree + "endobj\n";

    const qsizetype headerEnd = parts.front().indexOf("\n1 0 obj");
    QByteArray out = parts.front().left(headerEnd >= 0 ? headerEnd + 1 : 0);
    if (out.isEmpty())
        out = "%PDF-1.4\n";
    const int size = next + 1;
    QList<qsizetype> offsets(size, -1);
    for (const auto& [n, text] : objects) {
        offsets[n] = out.size();
        out += text;
    }
    const qsizetype xref = out.size();
    out += "xref\n0 " + QByteArray::number(size) + "\n0000000000 65535 f \n";
    for (int n = 1; n < size; ++n) {
        if (offsets[n] < 0)
            out += "0000000000 65535 f \n";
        else
            out += QByteArray::number(offsets[n]).rightJustified(10, '0') + " 00000 n \n";
    }
    out += "trailer\n<<\n/Size " + QByteArray::number(size) + "\n";
    if (first.info)
        out += "/Info " + QByteArray::number(first.info) + " 0 R\n";
    out += "/Root " + QByteArray::number(first.root) + " 0 R\n>>\nstartxref\n" + QByteArray::number(xref) + "\n%%EOF\n";
    return out;
}

} // namespace nuvrel
