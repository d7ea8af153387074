// Arbitrary bytes as a Telegram export (a file read as a stream of JSON events) and as pasted text:
// only ConversationError may come out, a chat never reads more messages than its listing counted, and
// a pasted text that holds anything gives a conversation of at least one message.

#include "engines/conversations/ConversationError.h"
#include "engines/conversations/PastedText.h"
#include "engines/conversations/TelegramExport.h"

#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdlib>
#include <unistd.h>

namespace {

QString scratchFile()
{
    static const QString path =
        QDir::temp().filePath(QStringLiteral("nuvrel-fuzz-telegram-%1.json").arg(QString::number(::getpid())));
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    {
        QFile file(scratchFile());
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
            std::abort();
    }
    try {
        const QList<nuvrel::MessagesChatInfo> chats = nuvrel::TelegramExport::listChats(scratchFile());
        for (const nuvrel::MessagesChatInfo& chat : chats) {
            if (!chat.title.startsWith(QStringLiteral("Telegram")))
                std::abort();
            try {
                if (nuvrel::TelegramExport::transcript(scratchFile(), chat.id).messages.size() > chat.count)
                    std::abort();
            } catch (const nuvrel::ConversationError&) {
            }
        }
    } catch (const nuvrel::ConversationError&) {
    }

    const QString text = QString::fromUtf8(bytes);
    const std::optional<nuvrel::PastedText::Result> pasted = nuvrel::PastedText::parse(text);
    if (pasted.has_value() != !text.trimmed().isEmpty())
        std::abort();
    if (pasted && pasted->transcript.messages.isEmpty())
        std::abort();
    return 0;
}
