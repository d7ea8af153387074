#pragma once

#include <QString>
#include <QStringList>

namespace nuvrel::test {

/// Reading PDFs back with poppler (poppler-utils), an implementation of PDF that is not Qt's.

/// The standard output of a command, once it ended (two minutes at most).
QString runTool(const QString& program, const QStringList& arguments);

/// The text of a PDF (pdftotext), with compatibility characters such as the "ﬁ" ligature decomposed.
QString pdfText(const QString& pdf);

/// The number of pages pdfinfo reports, or -1.
int pdfPageCount(const QString& pdf);

} // namespace nuvrel::test
