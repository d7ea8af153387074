// The QR code a phone reads the address from, decoded back by zbarimg: drawn as an image scaled by
// whole pixels, and drawn in a terminal with half blocks (rebuilt into an image from its characters).

#include "engines/transfer/QrCode.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

/// What zbarimg reads in the image, or empty.
QByteArray decoded(const QImage& image)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("code.png"));
    if (!image.save(path))
        return {};
    QProcess zbar;
    zbar.start(QStringLiteral("zbarimg"), {QStringLiteral("--quiet"), QStringLiteral("--raw"), path});
    if (!zbar.waitForFinished(30'000) || zbar.exitCode() != 0)
        return {};
    return zbar.readAllStandardOutput().trimmed();
}

/// The terminal drawing back into pixels: each character two modules high.
QImage fromTerminalText(const QString& text)
{
    const QStringList lines = text.split(u'\n', Qt::SkipEmptyParts);
    const int width = int(lines.constFirst().size());
    QImage image(width, int(lines.size()) * 2, QImage::Format_Grayscale8);
    image.fill(255);
    for (int row = 0; row < lines.size(); ++row) {
        for (int x = 0; x < width; ++x) {
            const char16_t c = lines.at(row).at(x).unicode();
            if (c == 0x2588 || c == 0x2580)
                image.scanLine(row * 2)[x] = 0;
            if (c == 0x2588 || c == 0x2584)
                image.scanLine(row * 2 + 1)[x] = 0;
        }
    }
    return image;
}

} // namespace

TEST(QrCode, DecodesBackToTheAddressFromAnImageAndFromATerminal)
{
    if (QStandardPaths::findExecutable(QStringLiteral("zbarimg")).isEmpty())
        GTEST_SKIP() << "zbarimg (zbar-tools) is not installed";
    const QByteArray url = "http://192.168.1.20:50123/ab2cdefghijklmnopqrstuvwx7/";
    const std::optional<QrCode> code = QrCode::encode(url);
    ASSERT_TRUE(code);

    const QImage image = code->toImage();
    EXPECT_EQ(image.width(), code->size() + 2 * QrCode::quietZone);
    // A whole number of pixels per module, as the page draws it.
    EXPECT_EQ(decoded(image.scaled(image.size() * 8, Qt::IgnoreAspectRatio, Qt::FastTransformation)), url);

    // Without colours the blocks are the ink; the quiet zone is spaces all round.
    const QString plain = code->toTerminalText(false);
    EXPECT_TRUE(plain.startsWith(QString(image.width(), u' ')));
    const QImage rebuilt = fromTerminalText(plain);
    EXPECT_EQ(rebuilt.copy(0, 0, image.width(), image.height()), image);
    EXPECT_EQ(decoded(rebuilt.scaled(rebuilt.size() * 8, Qt::IgnoreAspectRatio, Qt::FastTransformation)), url);
    // With colours, each line forces black on white and resets at its end.
    const QStringList lines = code->toTerminalText(true).split(u'\n', Qt::SkipEmptyParts);
    EXPECT_EQ(lines.size(), (image.height() + 1) / 2);
    for (const QString& line : lines)
        EXPECT_TRUE(line.startsWith(QStringLiteral("\x1b[30;47m")) && line.endsWith(QStringLiteral("\x1b[0m")));
}

TEST(QrCode, TextBeyondTheLargestCodeIsRefused)
{
    EXPECT_TRUE(QrCode::encode(QByteArray(2000, 'a')));
    EXPECT_FALSE(QrCode::encode(QByteArray(8000, 'a')));
}
