#pragma once

#include "engines/conversations/ConversationSource.h"

#include <memory>
#include <optional>

namespace nuvrel {

class WorkFolder;

/// WhatsApp's "Export Chat" with media: a zip archive holding "_chat.txt" (or one other text file) and
/// the photos, videos and notes the conversation names. The archive is never unpacked as it stands:
/// it is surveyed first and refused when it would unpack to more than maxUnpacked or holds an entry
/// compressed more than maxRatio times (a zip bomb); then only the conversation's text and the photos
/// its messages name are copied, under names of ours, into a private work folder that goes with this
/// object. A photo named in a message becomes its image; anything else stays the message's label.
class WhatsAppArchive final : public ConversationSource
{
public:
    static constexpr qint64 maxUnpacked = qint64(2) * 1024 * 1024 * 1024;
    static constexpr qint64 maxRatio = 100;

    explicit WhatsAppArchive(QString file);
    ~WhatsAppArchive() override;

    std::optional<ConvSource> kind() const override { return ConvSource::WhatsApp; }
    QList<MessagesChatInfo> listChats() const override;
    ChatTranscript transcript(const MessagesChatInfo& chat) const override;

    /// Whether `file` starts as a zip archive does.
    static bool looksLikeZip(const QString& file);

private:
    const ChatTranscript& unpacked() const;

    QString m_file;
    mutable std::unique_ptr<WorkFolder> m_work;
    mutable std::optional<ChatTranscript> m_transcript;
};

} // namespace nuvrel
