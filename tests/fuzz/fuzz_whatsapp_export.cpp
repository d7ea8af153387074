// Arbitrary text as a WhatsApp export: a transcript is never empty and every date in it is valid.

#include "engines/conversations/WhatsAppParser.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const std::optional<nuvrel::ChatTranscript> transcript =
            nuvrel::WhatsAppParser::parse(text, QStringLiteral("x"))) {
        if (transcript->messages.isEmpty())
            std::abort();
        for (const nuvrel::ChatMessage& message : transcript->messages) {
            if (!message.date.isValid())
                std::abort();
        }
    }
    return 0;
}
