#include "formats/pdf/PdfPage.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>

namespace nuvrel::PdfPage {

std::unique_ptr<QPdfWriter> writer(QIODevice* device, const QString& title, const QMarginsF& margins)
{
    auto pdf = std::make_unique<QPdfWriter>(device);
    pdf->setResolution(resolution);
    pdf->setPageLayout(
        QPageLayout(QPageSize(a4, QPageSize::Point), QPageLayout::Portrait, margins, QPageLayout::Point));
    pdf->setTitle(title);
    pdf->setCreator(QStringLiteral("Nuvrel"));
    return pdf;
}

QFont font(qreal points, bool bold)
{
    QFont face = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    face.setFamilies({QFontInfo(face).family(), QStringLiteral("Symbola")});
    face.setPointSizeF(points);
    face.setBold(bold);
    return face;
}

QFont fixedFont(qreal points)
{
    QFont face = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    face.setPointSizeF(points);
    return face;
}

qreal paragraph(QPainter& painter, qreal top, qreal width, const QString& text, const QFont& font)
{
    painter.setFont(font);
    const QRectF area(0, top, width, 10'000);
    const QRectF used = painter.boundingRect(area, Qt::TextWordWrap | Qt::AlignLeft, text);
    painter.drawText(area, Qt::TextWordWrap | Qt::AlignLeft, text);
    return used.height();
}

} // namespace nuvrel::PdfPage
