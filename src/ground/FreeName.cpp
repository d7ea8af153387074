#include "ground/FreeName.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

namespace {

constexpr qsizetype maxFileNameBytes = 255;

// Cuts `name` to at most maxFileNameBytes of UTF-8, never inside a character, keeping a short extension.
QString fitName(const QString& name)
{
    if (name.toUtf8().size() <= maxFileNameBytes)
        return name;
    const qsizetype dot = name.lastIndexOf(u'.');
    QString extension = dot > 0 ? name.mid(dot) : QString();
    if (extension.toUtf8().size() > 16)
        extension.clear();
    QString base = extension.isEmpty() ? name : name.left(dot);
    const qsizetype room = maxFileNameBytes - extension.toUtf8().size();
    const QList<uint> codePoints = base.toUcs4();
    QString kept;
    qsizetype bytes = 0;
    for (const uint c : codePoints) {
        const char32_t point = char32_t(c);
        const QString one = QString::fromUcs4(&point, 1);
        const qsizetype size = one.toUtf8().size();
        if (bytes + size > room)
            break;
        kept += one;
        bytes += size;
    }
    return kept + extension;
}

} // namespace

QString numberedName(const QString& name, int n, FreeNameStyle style)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    const bool hasExtension = dot > 0; // a dot at 0 starts a hidden name
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot) : QString();
    const QString number =
        style == FreeNameStyle::Parenthesised ? QStringLiteral(" (%1)").arg(n) : QStringLiteral("-%1").arg(n);
    return base + number + extension;
}

QString freeName(const QString& location, FreeNameStyle style)
{
    if (!QFileInfo::exists(location) && !QFileInfo(location).isSymLink())
        return location;
    const QFileInfo info(location);
    const QDir folder = info.dir();
    for (int n = 2;; ++n) {
        QString candidate = folder.filePath(numberedName(info.fileName(), n, style));
        if (!QFileInfo::exists(candidate) && !QFileInfo(candidate).isSymLink())
            return candidate;
    }
}

QString cleanFileName(const QString& name)
{
    if (name.isEmpty() || name == u"." || name == u"..")
        return {};
    QString clean = name;
    for (QChar& c : clean) {
        if (c == u'/' || c.unicode() < 0x20 || c.unicode() == 0x7F)
            c = u'_';
    }
    return fitName(clean);
}

} // namespace nuvrel
