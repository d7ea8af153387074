#include "sessions/backup/PasswordSheet.h"

#include "l10n/L.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFontDatabase>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>
#include <QUuid>

namespace nuvrel {

namespace {

// Points, on a page laid out at 72 dots per inch so that sizes read as in a page-layout program.
constexpr int resolution = 72;
constexpr qreal gap = 14;

QFont font(qreal points, bool bold = false, bool fixed = false)
{
    QFont f = fixed ? QFontDatabase::systemFont(QFontDatabase::FixedFont) : QFont();
    f.setPointSizeF(points);
    f.setBold(bold);
    return f;
}

// Draws a paragraph across the width and moves `top` below it.
void paragraph(QPainter& painter, qreal& top, qreal width, const QString& text, const QFont& f)
{
    painter.setFont(f);
    const QRectF area(0, top, width, 10'000);
    const QRectF used = painter.boundingRect(area, Qt::TextWordWrap | Qt::AlignLeft, text);
    painter.drawText(area, Qt::TextWordWrap | Qt::AlignLeft, text);
    top += used.height() + gap;
}

} // namespace

QString PasswordSheet::make(const QString& device, const QString& password)
{
    const QString path = QDir(QDir::tempPath())
                             .filePath(QStringLiteral("Nuvrel-fiche-") +
                                       QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".pdf"));
    {
        // The sheet holds a password: made owner-only before a byte of it is written.
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
            return {};
    }
    QPdfWriter writer(path);
    writer.setResolution(resolution);
    writer.setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait, QMarginsF(56, 64, 56, 64)));
    writer.setTitle(L("Nuvrel : fiche de secours"));
    writer.setCreator(QStringLiteral("Nuvrel"));

    QPainter painter;
    if (!painter.begin(&writer)) {
        QFile::remove(path);
        return {};
    }
    const qreal width = writer.pageLayout().paintRectPoints().width();
    qreal top = 0;
    paragraph(painter, top, width, L("Nuvrel : fiche de secours"), font(22, true));
    paragraph(painter, top, width, Localizer::formatDate(QDate::currentDate()), font(11));
    top += gap;
    paragraph(painter, top, width, L("Sauvegarde de l'iPhone : ") + device, font(13));
    paragraph(painter, top, width, L("Mot de passe de la sauvegarde :"), font(13, true));

    // The password in a fixed-width face inside a grey frame, so that every character can be told apart.
    const QFont fixed = font(18, false, true);
    painter.setFont(fixed);
    const QRectF text = painter.boundingRect(QRectF(16, top + 12, width - 32, 10'000), Qt::TextWrapAnywhere, password);
    const QRectF frame(0, top, width, text.height() + 24);
    painter.setPen(QPen(QColor(150, 150, 150), 1.5));
    painter.drawRoundedRect(frame, 6, 6);
    painter.setPen(Qt::black);
    painter.drawText(QRectF(16, top + 12, width - 32, text.height()), Qt::TextWrapAnywhere, password);
    top += frame.height() + 2 * gap;

    paragraph(painter, top, width,
              L("Sans ce mot de passe, la sauvegarde chiffrée de l'iPhone ne peut être ouverte ni par Nuvrel, ni par "
                "Apple. Range cette feuille en lieu sûr, pas à côté de l'ordinateur."),
              font(11));
    return painter.end() ? path : QString();
}

} // namespace nuvrel
