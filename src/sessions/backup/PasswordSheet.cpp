#include "sessions/backup/PasswordSheet.h"

#include "formats/pdf/PdfPage.h"
#include "l10n/L.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>
#include <QUuid>

namespace nuvrel {

namespace {

constexpr qreal gap = 14;

// Draws a paragraph across the width and moves `top` below it.
void paragraph(QPainter& painter, qreal& top, qreal width, const QString& text, const QFont& font)
{
    top += PdfPage::paragraph(painter, top, width, text, font) + gap;
}

} // namespace

QString PasswordSheet::make(const QString& device, const QString& password)
{
    QString path = QDir(QDir::tempPath())
                       .filePath(QStringLiteral("Nuvrel-fiche-") + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                                 QStringLiteral(".pdf"));
    {
        // The sheet holds a password: made owner-only before a byte of it is written.
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
            return {};
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        QFile::remove(path);
        return {};
    }
    const std::unique_ptr<QPdfWriter> writer =
        PdfPage::writer(&file, L("Nuvrel : fiche de secours"), QMarginsF(56, 64, 56, 64));

    QPainter painter;
    if (!painter.begin(writer.get())) {
        QFile::remove(path);
        return {};
    }
    const qreal width = writer->pageLayout().paintRectPoints().width();
    qreal top = 0;
    paragraph(painter, top, width, L("Nuvrel : fiche de secours"), PdfPage::font(22, true));
    paragraph(painter, top, width, Localizer::formatDate(QDate::currentDate()), PdfPage::font(11));
    top += gap;
    paragraph(painter, top, width, L("Sauvegarde de l'iPhone : ") + device, PdfPage::font(13));
    paragraph(painter, top, width, L("Mot de passe de la sauvegarde :"), PdfPage::font(13, true));

    // The password in a fixed-width face inside a grey frame, so that every character can be told apart.
    const QFont fixed = PdfPage::fixedFont(18);
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
              PdfPage::font(11));
    if (!painter.end() || !file.flush()) {
        QFile::remove(path);
        return {};
    }
    return path;
}

} // namespace nuvrel
