// Arbitrary text laid out as a conversation PDF, with a way for a short input to make very long runs:
// byte 0x01 followed by n repeats the character before it (n + 1) * 64 times. The layout must end well
// within the fuzzer's time limit whatever the text (word wrapping is quadratic in a word's length when
// nothing breaks the words up), and give between one page and the most a PDF may have.

#include "engines/conversations/ConversationPdf.h"

#include <QGuiApplication>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray expanded;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0x01 && i + 1 < size && !expanded.isEmpty()) {
            expanded.append(qsizetype(data[i + 1] + 1) * 64, expanded.back());
            ++i;
        } else {
            expanded.append(static_cast<char>(data[i]));
        }
    }
    nuvrel::ChatTranscript transcript;
    transcript.title = QStringLiteral("x");
    transcript.messages.append(
        {QDateTime(QDate(2024, 2, 14), QTime(9, 0)), QStringLiteral("Ana"), QString::fromUtf8(expanded), {}});
    const int pages = nuvrel::ConversationPDF::pageCount(transcript, QStringLiteral("WhatsApp"));
    if (pages < 1 || pages > nuvrel::ConversationPDF::maxPages)
        std::abort();
    return 0;
}
