#include "ground/FreeName.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace nuvrel {

namespace {

constexpr qsizetype maxFileNameBytes = 255;

// `base` cut to at most `room` bytes of UTF-8, never inside a character.
QString cutToBytes(const QString& base, qsizetype room)
{
    QString kept;
    qsizetype bytes = 0;
    for (const uint c : base.toUcs4()) {
        const char32_t point = char32_t(c);
        const QString one = QString::fromUcs4(&point, 1);
        const qsizetype size = one.toUtf8().size();
        if (bytes + size > room)
            break;
        kept += one;
        bytes += size;
    }
    return kept;
}

// Cuts `name` to at most maxFileNameBytes of UTF-8, never inside a character, keeping a short extension.
QString fitName(const QString& name)
{
    if (name.toUtf8().size() <= maxFileNameBytes)
        return name;
    const qsizetype dot = name.lastIndexOf(u'.');
    QString extension = dot > 0 ? name.mid(dot) : QString();
    if (extension.toUtf8().size() > 16)
        extension.clear();
    return nameWithTail(extension.isEmpty() ? name : name.left(dot), extension);
}

} // namespace

QString nameWithTail(const QString& base, const QString& tail)
{
    const qsizetype room = maxFileNameBytes - tail.toUtf8().size();
    if (base.toUtf8().size() <= room)
        return base + tail;
    return cutToBytes(base, std::max<qsizetype>(room, 1)) + tail;
}

QString numberedName(const QString& name, int n, FreeNameStyle style)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    const bool hasExtension = dot > 0; // a dot at 0 starts a hidden name
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot) : QString();
    const QString number =
        style == FreeNameStyle::Parenthesised ? QStringLiteral(" (%1)").arg(n) : QStringLiteral("-%1").arg(n);
    // The number is kept whole, whatever the base loses: a cut number would name the file it avoids.
    return nameWithTail(base, number + extension);
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
