// Joining PDFs drawn in parts: poppler's tools (pdfinfo, pdftotext), independent readers, must see one
// document with every page of every part, in order, and their text unchanged.

#include "formats/pdf/PdfJoin.h"
#include "formats/pdf/PdfPage.h"

#include "support/PdfTools.h"

#include <QBuffer>
#include <QPainter>
#include <QPdfWriter>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

// A document of `pages` pages, each saying which part and page it is, with a picture on its first.
QByteArray drawn(const QString& part, int pages)
{
    QByteArray pdf;
    QBuffer buffer(&pdf);
    buffer.open(QIODevice::WriteOnly);
    const std::unique_ptr<QPdfWriter> writer = PdfPage::writer(&buffer, QStringLiteral("Partie ") + part);
    QPainter painter(writer.get());
    for (int page = 1; page <= pages; ++page) {
        if (page > 1)
            writer->newPage();
        painter.setFont(PdfPage::font(12));
        painter.drawText(QPointF(50, 100), QStringLiteral("%1 page %2 éàü Ђорђе 🙂").arg(part).arg(page));
        if (page == 1) {
            QImage image(40, 30, QImage::Format_RGB32);
            image.fill(Qt::darkCyan);
            painter.drawImage(QRectF(50, 200, 40, 30), image);
        }
    }
    painter.end();
    return pdf;
}

} // namespace

TEST(PdfJoin, PartsBecomeOneDocumentWithEveryPageInOrder)
{
    if (QStandardPaths::findExecutable(QStringLiteral("pdfinfo")).isEmpty())
        GTEST_SKIP() << "poppler-utils is installed by tools/install-deps.sh";
    QTemporaryDir dir;
    const std::optional<QByteArray> joined =
        joinPdfs({drawn(QStringLiteral("A"), 3), drawn(QStringLiteral("B"), 1), drawn(QStringLiteral("C"), 2)});
    ASSERT_TRUE(joined);
    const QString path = dir.filePath(QStringLiteral("joined.pdf"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(*joined);
    file.close();

    EXPECT_EQ(pdfPageCount(path), 6);
    const QString info = runTool(QStringLiteral("pdfinfo"), {path});
    EXPECT_TRUE(info.contains(QStringLiteral("Partie A"))) << qPrintable(info);
    const QStringList pages = pdfText(path).split(u'\f', Qt::SkipEmptyParts);
    ASSERT_EQ(pages.size(), 6);
    const QStringList expected{QStringLiteral("A page 1"), QStringLiteral("A page 2"), QStringLiteral("A page 3"),
                               QStringLiteral("B page 1"), QStringLiteral("C page 1"), QStringLiteral("C page 2")};
    for (qsizetype i = 0; i < pages.size(); ++i) {
        EXPECT_TRUE(pages[i].contains(expected[i])) << i << qPrintable(pages[i]);
        EXPECT_TRUE(pages[i].contains(QStringLiteral("éàü Ђорђе"))) << qPrintable(pages[i]);
    }
    // A single part comes back as a document of its own.
    EXPECT_TRUE(joinPdfs({drawn(QStringLiteral("A"), 2)}));
}

TEST(PdfJoin, WhatIsNotAPlainQtDocumentIsRefused)
{
    const QByteArray good = drawn(QStringLiteral("A"), 1);
    EXPECT_FALSE(joinPdfs({}));
    EXPECT_FALSE(joinPdfs({good, QByteArray()}));
    EXPECT_FALSE(joinPdfs({good, QByteArray("%PDF-1.7\n1 0 obj <<>> endobj\ntrailer <<>>\n%%EOF")}));
    // Cut short, or with its cross-reference table pointing elsewhere.
    EXPECT_FALSE(joinPdfs({good, good.left(good.size() / 2)}));
    QByteArray moved = good;
    const qsizetype xref = moved.lastIndexOf("startxref\n") + 10;
    moved.replace(xref, 1, "9");
    EXPECT_FALSE(joinPdfs({good, moved}));
}
