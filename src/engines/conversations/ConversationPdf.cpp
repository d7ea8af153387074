#include "engines/conversations/ConversationPdf.h"

#include "engines/conversations/ConversationPages.h"
#include "ground/NewFile.h"
#include "ground/RegularFile.h"
#include "ground/SystemError.h"
#include "l10n/L.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImageReader>
#include <QRegularExpression>
#include <QSaveFile>

#include <cerrno>

namespace nuvrel {

using namespace conversationpages;

namespace {

// Points.
constexpr qreal imageWidth = 220;
constexpr int thumbnailPixels = 880; // four pixels per point at the largest displayed width

const QColor noticeRed = QColor::fromRgbF(0.75f, 0.07f, 0.24f);
const QColor palette[] = {QColor::fromRgbF(0.11f, 0.31f, 0.85f), QColor::fromRgbF(0.02f, 0.47f, 0.34f),
                          QColor::fromRgbF(0.71f, 0.33f, 0.04f), QColor::fromRgbF(0.49f, 0.23f, 0.93f),
                          QColor::fromRgbF(0.75f, 0.07f, 0.24f)};

Block paragraph(QString text, Face face, qreal after, const QColor& colour = Qt::black)
{
    Block block;
    block.text = std::move(text);
    block.face = face;
    block.colours.append({0, block.text.size(), colour});
    block.after = after;
    return block;
}

// A thumbnail with its orientation applied, or nothing when the file cannot be read as a picture.
std::optional<Block> picture(const QString& path)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > thumbnailPixels || size.height() > thumbnailPixels))
        reader.setScaledSize(size.scaled(thumbnailPixels, thumbnailPixels, Qt::KeepAspectRatio));
    QImage image = reader.read();
    if (image.isNull())
        return std::nullopt;
    const QSize shown =
        reader.transformation().testFlag(QImageIOHandler::TransformationRotate90) ? size.transposed() : size;
    const qreal width = std::min<qreal>(imageWidth, shown.isValid() ? shown.width() : image.width());
    Block block;
    block.image = std::move(image);
    block.imageSize = QSizeF(width, width * block.image.height() / block.image.width());
    block.after = 8;
    return block;
}

// CR LF, CR and LF as the one line break a text layout knows.
QString withLineSeparators(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QString(QChar::LineSeparator))
        .replace(u'\r', QChar::LineSeparator)
        .replace(u'\n', QChar::LineSeparator);
}

QList<Block> documentBlocks(const ChatTranscript& transcript, const QString& sourceLabel, const QString& fingerprint,
                            const QDateTime& generated)
{
    const QLocale locale = Localizer::locale();
    // Text kept from a line whose date could not be read has none: it says so rather than invent one.
    const QString unknownDay = L("date inconnue");
    const auto day = [&locale, &unknownDay](const QDateTime& date) {
        return date.isValid() ? locale.toString(date.toLocalTime().date(), QStringLiteral("dddd d MMMM yyyy"))
                              : unknownDay;
    };
    QList<Block> blocks;
    blocks.reserve(transcript.messages.size() + 8);
    blocks.append(paragraph(transcript.title, Face::Title, 10));
    blocks.append(paragraph(L("Source : ") + sourceLabel, Face::Info, 2));
    const auto dated = [](const ChatMessage& message) { return message.date.isValid(); };
    const auto firstDated = std::find_if(transcript.messages.cbegin(), transcript.messages.cend(), dated);
    const auto lastDated = std::find_if(transcript.messages.crbegin(), transcript.messages.crend(), dated);
    if (firstDated != transcript.messages.cend())
        blocks.append(
            paragraph(L("Période : ") + day(firstDated->date) + L(" au ") + day(lastDated->date), Face::Info, 2));
    blocks.append(paragraph(L("Nombre de messages : ") + QString::number(transcript.messages.size()), Face::Info, 2));
    blocks.append(paragraph(L("Document généré par Nuvrel le ") +
                                locale.toString(generated, QStringLiteral("dddd d MMMM yyyy, HH:mm")),
                            Face::Info, 2));
    blocks.append(paragraph(L("Empreinte numérique du contenu (SHA-256) : ") + fingerprint, Face::Info, 2));
    Block notice = paragraph(L("Ce document est une copie mise en forme d'une conversation, créée à partir des données "
                               "fournies par l'utilisateur. Il ne remplace pas un constat de commissaire de justice."),
                             Face::Notice, 14, noticeRed);
    notice.before = 8;
    blocks.append(std::move(notice));

    const QHash<QString, QColor> colours = ConversationPDF::senderColours(transcript);
    QString previousDay;
    for (const ChatMessage& message : transcript.messages) {
        const QString thisDay = day(message.date);
        if (thisDay != previousDay) {
            Block separator = paragraph(QStringLiteral("— ") + thisDay + QStringLiteral(" —"), Face::Separator, 6);
            separator.alignment = Qt::AlignHCenter;
            separator.before = 10;
            blocks.append(std::move(separator));
            previousDay = thisDay;
        }
        const QColor colour = colours.value(message.sender);
        const QString time =
            (message.date.isValid() ? locale.toString(message.date.toLocalTime().time(), QStringLiteral("HH:mm"))
                                    : QStringLiteral("--:--")) +
            QStringLiteral("  ");
        Block block;
        block.face = Face::Message;
        // A line break of the message is one in the PDF too (a layout takes U+2028 for it, not a line feed).
        block.text = time + message.sender + QStringLiteral(" : ") + withLineSeparators(message.text);
        block.colours = {{0, time.size(), secondary},
                         {time.size(), message.sender.size(), colour},
                         {time.size() + message.sender.size(), block.text.size(), Qt::black}};
        block.after = 5;
        blocks.append(std::move(block));
        for (const QString& image : message.images) {
            if (std::optional<Block> shown = picture(image))
                blocks.append(std::move(*shown));
        }
    }
    return blocks;
}

QString sha256Hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

} // namespace

QString ConversationPDF::contentFingerprint(const ChatTranscript& transcript)
{
    const QLocale posix = QLocale::c();
    QStringList lines;
    lines.reserve(transcript.messages.size());
    for (const ChatMessage& message : transcript.messages) {
        QStringList names;
        for (const QString& image : message.images)
            names.append(QFileInfo(image).fileName());
        lines.append(posix.toString(message.date.toLocalTime(), QStringLiteral("yyyy-MM-dd HH:mm:ss")) + u'|' +
                     message.sender + u'|' + message.text + u'|' + names.join(u','));
    }
    return sha256Hex(lines.join(u'\n').toUtf8());
}

QHash<QString, QColor> ConversationPDF::senderColours(const ChatTranscript& transcript)
{
    QHash<QString, QColor> colours;
    for (const ChatMessage& message : transcript.messages) {
        if (!colours.contains(message.sender))
            colours.insert(message.sender, palette[colours.size() % std::size(palette)]);
    }
    return colours;
}

int ConversationPDF::pageCount(const ChatTranscript& transcript, const QString& sourceLabel)
{
    const QList<Block> blocks =
        documentBlocks(transcript, sourceLabel, contentFingerprint(transcript), QDateTime::currentDateTime());
    return paginate(blocks, measure(blocks, threadsFor(blocks))).pages;
}

QString ConversationPDF::sideFilePath(const QString& pdf)
{
    const QFileInfo info(pdf);
    return info.dir().filePath(info.completeBaseName() + QStringLiteral(".empreinte.txt"));
}

ConversationPDF::Result ConversationPDF::build(const QString& destination, const ChatTranscript& transcript,
                                               const QString& sourceLabel, bool replace)
{
    Result result;
    result.contentFingerprint = contentFingerprint(transcript);
    const QDateTime generated = QDateTime::currentDateTime();
    const QList<Block> blocks = documentBlocks(transcript, sourceLabel, result.contentFingerprint, generated);

    // The footers name the page count: the lines are measured first (on every core), then drawn.
    const Heights heights = measure(blocks, threadsFor(blocks));
    const Pagination pagination = paginate(blocks, heights);
    result.pages = pagination.pages;

    // Written under a temporary name and named when whole, never over an existing file.
    QString written;
    try {
        NewFile output(destination, FreeNameStyle::Parenthesised);
        drawDocument(output.device(), transcript.title, blocks, heights, pagination, result.contentFingerprint,
                     destination);
        written = replace ? output.commitReplacing() : output.commit();
    } catch (const FileError& error) {
        // What failed and why, once: "Plus assez de place sur le disque pour écrire …".
        throw Error(error.message());
    }
    result.pdf = written;

    QFile pdf(written);
    if (!pdf.open(QIODevice::ReadOnly))
        throw Error(FileError::fromErrno(FileError::Operation::Read, errno, written).message());
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&pdf);
    result.pdfFingerprint = QString::fromLatin1(hash.result().toHex());

    result.sideFile = sideFilePath(written);
    QSaveFile side(result.sideFile);
    const QString text =
        L("Fichier : ") + QFileInfo(written).fileName() + L("\nCréé le : ") +
        Localizer::locale().toString(generated, QStringLiteral("dddd d MMMM yyyy, HH:mm")) +
        L(" par Nuvrel\nEmpreinte SHA-256 du PDF : ") + result.pdfFingerprint +
        L("\nEmpreinte SHA-256 du contenu des messages : ") + result.contentFingerprint +
        L("\n\nSi le PDF est modifié, même d'un seul caractère, son empreinte change. Garde ce fichier avec le "
          "PDF.\nCe document ne remplace pas un constat de commissaire de justice.");
    if (!side.open(QIODevice::WriteOnly) || side.write(text.toUtf8()) < 0 || !side.commit())
        throw Error(FileError::fromErrno(FileError::Operation::Write, errno, result.sideFile).message());
    return result;
}

ConversationPDF::Verification ConversationPDF::verify(const QString& pdfPath)
{
    QFile pdf;
    if (!openRegularFile(pdf, pdfPath))
        return Verification::PdfUnreadable;
    QFile side;
    if (!openRegularFile(side, sideFilePath(pdfPath), {qint64(1) << 20}))
        return QFileInfo::exists(sideFilePath(pdfPath)) ? Verification::SideFileUnreadable : Verification::NoSideFile;
    static const QRegularExpression hex(QStringLiteral("\\b[0-9a-fA-F]{64}\\b"));
    // A side file is a few lines; a huge one is not ours.
    const QRegularExpressionMatch recorded = hex.match(QString::fromUtf8(side.read(qint64(64) * 1024)));
    if (!recorded.hasMatch())
        return Verification::SideFileUnreadable;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&pdf))
        return Verification::PdfUnreadable;
    const QString actual = QString::fromLatin1(hash.result().toHex());
    return recorded.captured().compare(actual, Qt::CaseInsensitive) == 0 ? Verification::Intact
                                                                         : Verification::Modified;
}

} // namespace nuvrel
