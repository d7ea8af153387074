#pragma once

#include "engines/conversations/ChatRecords.h"

#include <QColor>
#include <QHash>
#include <QString>

#include <exception>

namespace nuvrel {

/// A conversation as a paginated A4 PDF, with a SHA-256 fingerprint of its content on the title page
/// and in every footer, and a ".empreinte.txt" file beside it that records the PDF's own fingerprint.
/// Needs a QGuiApplication (fonts).
class ConversationPDF final
{
public:
    static constexpr int maxPages = 20'000;

    struct Result
    {
        QString pdf;                ///< the file written: the destination, or "name (2).pdf" when it was taken
        QString pdfFingerprint;     ///< SHA-256 of the finished file, 64 lowercase hexadecimal digits
        QString contentFingerprint; ///< SHA-256 of the messages, independent of layout and date
        QString sideFile;           ///< the ".empreinte.txt" file
        int pages = 0;
    };

    /// The PDF could not be written; message() says so in the user's language.
    class Error final : public std::exception
    {
    public:
        explicit Error(QString message)
            : m_message(std::move(message))
        {}
        QString message() const { return m_message; }
        const char* what() const noexcept override { return "cannot create the conversation PDF"; }

    private:
        QString m_message;
    };

    ConversationPDF() = delete;

    /// Writes the PDF at `destination`, or at "name (2).pdf"… when that is taken, never replacing a file
    /// unless `replace` (the user asked for it), and its side file; throws Error.
    static Result build(const QString& destination, const ChatTranscript& transcript, const QString& sourceLabel,
                        bool replace = false);

    /// The pages the PDF of `transcript` takes, laid out but neither drawn nor written.
    static int pageCount(const ChatTranscript& transcript, const QString& sourceLabel);

    static QString contentFingerprint(const ChatTranscript& transcript);
    /// Each sender's colour: the palette's five, in order of first appearance, cycling after five.
    static QHash<QString, QColor> senderColours(const ChatTranscript& transcript);
    /// "Conversation.pdf" → "Conversation.empreinte.txt", in the same folder.
    static QString sideFilePath(const QString& pdf);

    enum class Verification { Intact, Modified, PdfUnreadable, NoSideFile, SideFileUnreadable };
    /// Whether the PDF is still the file that was made: its SHA-256 against the one its side file
    /// recorded (whatever the side file's language, the PDF's fingerprint comes first, in any case).
    /// A side file that holds no fingerprint is unreadable, which says nothing of the PDF.
    static Verification verify(const QString& pdf);
};

} // namespace nuvrel
