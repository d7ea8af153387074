#include "engines/lighten/LightenError.h"
#include "engines/lighten/LightenFiles.h"
#include "engines/lighten/Lightener.h"
#include "formats/pdf/JpegPdfWriter.h"
#include "ground/NewFile.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QPainter>
#include <QPdfDocument>
#include <QSaveFile>

#include <poppler-qt6.h>

#include <cmath>
#include <limits>
#include <memory>
#include <mutex>

namespace nuvrel {

namespace {

struct Rung
{
    double dpi;
    double quality;
};
constexpr Rung ladder[] = {{150, 0.6}, {110, 0.5}, {80, 0.4}};

// Pages larger than this many pixels are drawn no larger: a page of a few kilobytes may declare
// itself kilometres wide.
constexpr qint64 maxPagePixels = 100'000'000;

// QtPdf 6.4 cannot tell a page's rotation; Poppler can, inherited values included. A document it
// cannot read is treated as turned, so that it is handed on untouched.
bool anyPageTurned(const QString& path)
{
    static std::once_flag quiet;
    std::call_once(quiet, [] { Poppler::setDebugErrorFunction([](const QString&, const QVariant&) {}, QVariant()); });
    const std::unique_ptr<Poppler::Document> document = Poppler::Document::load(path);
    if (!document || document->isLocked())
        return true;
    for (int i = 0; i < document->numPages(); ++i) {
        const std::unique_ptr<Poppler::Page> page = document->page(i);
        if (page && page->orientation() != Poppler::Page::Portrait)
            return true;
    }
    return false;
}

QByteArray encodeJpeg(const QImage& image, double quality)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(std::clamp(int(std::lround(quality * 100)), 1, 100));
    return writer.write(image) ? bytes : QByteArray();
}

bool renderInto(QPdfDocument& document, double dpi, double quality, QIODevice& device, const std::atomic<bool>* cancel)
{
    if (document.pageCount() < 1)
        return false;
    const double scale = dpi / 72.0;
    JpegPdfWriter writer(&device);
    for (int i = 0; i < document.pageCount(); ++i) {
        if (lighten::isCancelled(cancel))
            return false;
        const QSizeF box = document.pagePointSize(i);
        const double width = std::floor(box.width() * scale);
        const double height = std::floor(box.height() * scale);
        if (!(width >= 1 && height >= 1) || width * height > double(maxPagePixels))
            continue;
        const QSize pixels{int(width), int(height)};
        // QtPdf leaves the paper transparent: laid on white, as it prints.
        QImage page(pixels, QImage::Format_RGB32);
        page.fill(Qt::white);
        {
            QPainter painter(&page);
            painter.drawImage(0, 0, document.render(i, pixels));
        }
        const QByteArray jpeg = encodeJpeg(page, quality);
        if (jpeg.isEmpty() || !writer.addPage(jpeg, pixels, 3, box))
            return false;
    }
    return writer.finish();
}

} // namespace

bool Lightener::renderPdf(const QString& source, double dpi, double quality, const QString& to,
                          const std::atomic<bool>* cancel)
{
    QPdfDocument document;
    if (document.load(source) != QPdfDocument::Error::None)
        return false;
    QSaveFile out(to);
    if (!out.open(QIODevice::WriteOnly))
        return false;
    return renderInto(document, dpi, quality, out, cancel) && out.commit();
}

QString Lightener::lightenPdf(const QString& source, LightenTarget target, const QString& outputFolder,
                              const std::atomic<bool>* cancel)
{
    lighten::checkSource(source);
    QPdfDocument document;
    const QPdfDocument::Error opened = document.load(source);
    if (opened == QPdfDocument::Error::IncorrectPassword)
        throw LightenError(LightenError::Kind::Protected);
    if (opened != QPdfDocument::Error::None || document.pageCount() < 1)
        throw LightenError(LightenError::Kind::Unreadable);
    const qint64 sourceSize = fileSize(source);

    // Turned pages are never drawn again: the result could come out sideways.
    if (!anyPageTurned(source)) {
        const std::optional<qint64> budget = byteBudget(target);
        const QString destination = QDir(outputFolder).filePath(lighten::stem(source) + QStringLiteral("-leger.pdf"));
        std::unique_ptr<NewFile> candidate;
        qint64 best = std::numeric_limits<qint64>::max();
        for (const Rung& rung : ladder) {
            auto render = std::make_unique<NewFile>(destination, FreeNameStyle::Hyphenated);
            const bool rendered = renderInto(document, rung.dpi, rung.quality, render->device(), cancel);
            if (lighten::isCancelled(cancel))
                throw LightenError(LightenError::Kind::Cancelled);
            if (!rendered || !render->device().flush())
                continue;
            const qint64 size = render->device().size();
            if (size >= best)
                continue;
            candidate = std::move(render);
            best = size;
            if (!budget || best <= *budget)
                break;
        }
        if (candidate && best < sourceSize) {
            QString output = candidate->commit();
            copyDates(source, output);
            return output;
        }
    }
    return lighten::copyInto(source, outputFolder, QFileInfo(source).fileName());
}

} // namespace nuvrel
