#pragma once

#include "engines/conversations/ChatRecords.h"

#include <QString>

#include <memory>
#include <optional>

namespace nuvrel {

/// One place conversations come from: a Messages or WhatsApp database (always read through a private
/// copy), a WhatsApp text export or a Telegram export. Pages and commands list and read conversations through it,
/// whatever the source. Every failure is a ConversationError.
class ConversationSource
{
public:
    virtual ~ConversationSource() = default;

    /// The kind of store or export; none for pasted text.
    virtual std::optional<ConvSource> kind() const = 0;
    /// What the PDF names as its source: the kind's title, or "Texte collé".
    QString label() const;
    /// The conversations it holds, without their messages.
    virtual QList<MessagesChatInfo> listChats() const = 0;
    /// One conversation whole, named by its line of listChats(); Empty when it has no message.
    virtual ChatTranscript transcript(const MessagesChatInfo& chat) const = 0;
    /// The messages a Messages database holds, grouped into conversations or not: what explains an
    /// empty listing. -1 for every other source.
    virtual qint64 messageCount() const { return -1; }

    static std::unique_ptr<ConversationSource> messagesDatabase(QString file);
    static std::unique_ptr<ConversationSource> whatsAppDatabase(QString file);
    /// A WhatsApp "Export Chat" text file: one conversation, number 1, titled by the file's name.
    static std::unique_ptr<ConversationSource> whatsAppExport(QString file);
    /// A WhatsApp export with media: a zip archive (see WhatsAppArchive).
    static std::unique_ptr<ConversationSource> whatsAppArchive(QString file);
    /// A Telegram Desktop export (result.json), of one chat or of a whole account.
    static std::unique_ptr<ConversationSource> telegramExport(QString file);
    /// A conversation the user pasted (see PastedText): one conversation, number 1, or none.
    static std::unique_ptr<ConversationSource> pastedText(const QString& text);
    /// By the file's name (or a zip archive's first bytes): "ChatStorage…" is WhatsApp's store, ".txt" or ".zip" a
    /// WhatsApp export,
    /// ".json" a Telegram one, anything else Messages.
    static std::unique_ptr<ConversationSource> forFile(QString file);
};

} // namespace nuvrel
