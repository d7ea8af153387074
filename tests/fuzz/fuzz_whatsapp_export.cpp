// Arbitrary bytes as a WhatsApp export, with its date handling: a transcript is never empty, a message
// of unknown time is always one of the counted undated lines, and the file read in uneven pieces gives
// exactly what its whole text gives.

#include "engines/conversations/WhatsAppParser.h"

#include <QBuffer>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

// Reads of a size the input chooses, so that pieces end anywhere: inside a character, a CR LF, a line.
class Uneven final : public QBuffer
{
public:
    Uneven(const QByteArray& data, qint64 step)
        : m_step(step)
    {
        setData(data);
        open(QIODevice::ReadOnly);
    }

protected:
    qint64 readData(char* data, qint64 maxSize) override { return QBuffer::readData(data, std::min(maxSize, m_step)); }

private:
    qint64 m_step;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const qint64 step = 1 + data[0] % 13;
    const QByteArray bytes(reinterpret_cast<const char*>(data) + 1, static_cast<qsizetype>(size - 1));
    const std::optional<nuvrel::ChatTranscript> transcript =
        nuvrel::WhatsAppParser::parse(QString::fromUtf8(bytes), QStringLiteral("x"));
    if (transcript) {
        if (transcript->messages.isEmpty())
            std::abort();
        const auto undated = std::count_if(transcript->messages.cbegin(), transcript->messages.cend(),
                                           [](const nuvrel::ChatMessage& m) { return !m.date.isValid(); });
        if (undated > 1 || undated > transcript->undatedLines)
            std::abort(); // only a first message may lack its time
    }
    Uneven device(bytes, step);
    if (nuvrel::WhatsAppParser::parse(device, QStringLiteral("x")) != transcript)
        std::abort();
    return 0;
}
