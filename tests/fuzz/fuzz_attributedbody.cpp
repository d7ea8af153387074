// Arbitrary bytes as a Messages attributedBody blob: a decoded text is never empty and always valid.

#include "engines/conversations/MessagesReader.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const std::optional<QString> text = nuvrel::MessagesReader::decodeAttributedBody(bytes)) {
        if (text->isEmpty() || text->toUtf8().size() > bytes.size())
            std::abort();
    }
    return 0;
}
