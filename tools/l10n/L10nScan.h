#pragma once

#include <QList>
#include <QString>

namespace nuvrel::l10nscan {

/// One localised literal: the French text inside L("…") (or LN("…", count)) and where it stands.
struct Use
{
    QString text;
    QString file;
    int line = 0;
    bool plural = false; ///< LN: the tables hold one form per plural category instead
};

/// The L("…") literals of one C++ source, skipping comments, other strings and character literals.
/// Adjacent literals are joined, as the compiler joins them.
QList<Use> scanSource(const QString& source, const QString& fileName = {});

/// Every L("…") literal in the .cpp and .h files below a folder.
QList<Use> scanTree(const QString& folder);

/// The placeholders of a text, in a form two texts can be compared by: "%@" count and "%n$@" numbers.
QString placeholderSignature(const QString& text);

} // namespace nuvrel::l10nscan
