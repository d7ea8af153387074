#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace nuvrel {

/// The head of one HTTP request, as a phone's browser sends it: what the server needs of it and
/// nothing more. Everything in it is untrusted.
struct HttpRequest
{
    QByteArray method;      ///< "GET", "HEAD"…; empty when the request line has no field
    QString path;           ///< the target, percent-decoded, without its query; empty when missing
    bool hasRange = false;  ///< a Range header was sent
    QByteArray range;       ///< its value, as sent
    bool badTarget = false; ///< the target did not decode (a stray "%", bytes that are not UTF-8)
};

/// Reads a request's head from the bytes of a connection, as they arrive. The head ends at the first
/// empty line; a head larger than `maxHeadSize` is refused, so that a client cannot make the server
/// hold an unbounded buffer.
class HttpRequestReader
{
public:
    static constexpr qsizetype maxHeadSize = qsizetype(16) * 1024;

    enum class State {
        NeedMore, ///< the head is not complete yet
        Complete, ///< request() holds it
        TooLarge, ///< over maxHeadSize: close the connection
    };

    /// Appends what arrived; the state after it. Bytes after the head (a body, a pipelined request)
    /// are ignored: each connection carries one request.
    State feed(QByteArrayView bytes);
    State state() const { return m_state; }
    const HttpRequest& request() const { return m_request; }

    /// The head parsed from complete text (without the final empty line needed).
    static HttpRequest parse(QByteArrayView head);

private:
    QByteArray m_buffer;
    State m_state = State::NeedMore;
    HttpRequest m_request;
};

/// Undoes percent-encoding; nothing when a "%" is not followed by two hex digits or the result is
/// not UTF-8.
std::optional<QString> percentDecoded(QByteArrayView text);

} // namespace nuvrel
