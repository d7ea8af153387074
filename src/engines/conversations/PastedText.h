#pragma once

#include "engines/conversations/ChatRecords.h"

namespace nuvrel {

/// A conversation the user pasted, copied from anywhere. Read as the first layout that fits its first
/// line: WhatsApp's export lines, then "[date] Name : text", then "Name : text"; otherwise the whole
/// text is one message from one sender. Lines that fit no layout continue the message before them.
class PastedText final
{
public:
    enum class Layout { WhatsApp, Bracketed, Named, Block };

    struct Result
    {
        ChatTranscript transcript; ///< titled by its participants, up to three, else "Conversation collée"
        Layout layout = Layout::Block;
    };

    PastedText() = delete;

    /// Nothing when the text holds nothing but spaces.
    static std::optional<Result> parse(const QString& text);
};

} // namespace nuvrel
