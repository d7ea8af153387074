#pragma once

#include "engines/conversations/ChatRecords.h"

#include <optional>

class QIODevice;

namespace nuvrel {

/// Reads the text file of WhatsApp's "Export Chat": the iPhone layout ("[31/12/2023, 21:05:07] Ann: hi")
/// and the Android one ("31/12/2023, 21:05 - Ann: hi"), day- or month-first, 12- or 24-hour. A line whose
/// date cannot be read is kept as text and counted in ChatTranscript::undatedLines.
class WhatsAppParser final
{
public:
    WhatsAppParser() = delete;

    /// The conversation of an export, or nothing when no line could be read. `fallbackTitle` names it
    /// when it has no participant or more than three.
    static std::optional<ChatTranscript> parse(QStringView text, const QString& fallbackTitle);
    /// The same, from a UTF-8 file read twice from its start in pieces (it never sits whole in memory).
    /// Throws ConversationError when the file cannot be read to its end.
    static std::optional<ChatTranscript> parse(QIODevice& file, const QString& fallbackTitle);
};

} // namespace nuvrel
