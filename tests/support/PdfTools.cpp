#include "support/PdfTools.h"

#include <QProcess>
#include <QRegularExpression>

namespace nuvrel::test {

QString runTool(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(120'000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

QString pdfText(const QString& pdf)
{
    return runTool(QStringLiteral("pdftotext"),
                   {QStringLiteral("-enc"), QStringLiteral("UTF-8"), pdf, QStringLiteral("-")})
        .normalized(QString::NormalizationForm_KC);
}

int pdfPageCount(const QString& pdf)
{
    static const QRegularExpression pages(QStringLiteral("Pages:\\s+(\\d+)"));
    const QRegularExpressionMatch match = pages.match(runTool(QStringLiteral("pdfinfo"), {pdf}));
    return match.hasMatch() ? match.captured(1).toInt() : -1;
}

} // namespace nuvrel::test
