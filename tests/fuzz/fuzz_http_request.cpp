// Arbitrary bytes as what a phone (or anyone on the network) sends the transfer server: read in the
// pieces the input's first byte chooses, then answered. No input may reach a file off the list, a
// byte past a file's end, or a head that is not one.

#include "engines/transfer/HttpAnswer.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const qsizetype piece = 1 + data[0] % 64;
    const QByteArrayView bytes(reinterpret_cast<const char*>(data + 1), static_cast<qsizetype>(size - 1));
    nuvrel::HttpRequestReader reader;
    nuvrel::HttpRequestReader::State state = nuvrel::HttpRequestReader::State::NeedMore;
    for (qsizetype at = 0; at < bytes.size() && state == nuvrel::HttpRequestReader::State::NeedMore; at += piece)
        state = reader.feed(bytes.sliced(at, std::min(piece, bytes.size() - at)));
    if (state != nuvrel::HttpRequestReader::State::Complete)
        return 0;

    static const QString token = QStringLiteral("abcdefghijklmnopqrstuvwxyz");
    static const QList<nuvrel::ServedFile> files{{QStringLiteral("/a"), QStringLiteral("a \"<&>\r\n.txt"), 1000, {}},
                                                 {QStringLiteral("/b"), QStringLiteral("b"), 0, {}}};
    const nuvrel::HttpAnswer answer = nuvrel::HttpAnswers::answer(reader.request(), token, files);
    if (!answer.head.startsWith("HTTP/1.1 ") || !answer.head.endsWith("\r\n\r\n") ||
        answer.head.indexOf("\r\n\r\n") != answer.head.size() - 4)
        std::abort();
    if (answer.file >= 0) {
        if (answer.file >= files.size() ||
            !reader.request().path.startsWith(QLatin1Char('/') + token + QLatin1String("/f/")))
            std::abort();
        const qint64 fileSize = files[answer.file].size;
        if (answer.offset < 0 || answer.length < 0 || answer.offset + answer.length > fileSize)
            std::abort();
    }
    return 0;
}
