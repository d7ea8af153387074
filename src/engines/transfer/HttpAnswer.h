#pragma once

#include "engines/transfer/HttpRequest.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

namespace nuvrel {

/// A file the server offers: its bytes come from `path`, under `name`; the list decides what is
/// served, never the request.
struct ServedFile
{
    QString path;
    QString name;
    qint64 size = 0;
    QDateTime modified;
};

/// What the server sends for one request: a head, then either a body made here or a stretch of one
/// of the files, streamed by the caller.
struct HttpAnswer
{
    int status = 404;
    QByteArray head; ///< status line and headers, ending with the empty line
    QByteArray body; ///< the page or nothing; empty for a file and for HEAD
    int file = -1;   ///< the file whose bytes follow the head, or -1
    qint64 offset = 0;
    qint64 length = 0;
};

/// The answers of the transfer server, byte for byte. Every path lives under a random token, so that
/// someone else on the same network, who does not see the page's code, gets nothing:
///   /TOKEN/      the list of files, linking to f/0, f/1…
///   /TOKEN/f/N   file N, whole or the range asked (206), HEAD as GET without the bytes
///   /TOKEN       redirected to /TOKEN/
/// Anything else is the fixed 404; methods other than GET and HEAD get 405.
namespace HttpAnswers {

/// 26 characters of base32 (a–z, 2–7) from the system's random generator: 130 bits, new at each start.
QString newToken();

HttpAnswer answer(const HttpRequest& request, const QString& token, const QList<ServedFile>& files);

/// The page that lists the files, names written as text.
QByteArray indexPage(const QList<ServedFile>& files);

/// The Content-Disposition value for `name`: an ASCII stand-in for old clients and the exact name in
/// RFC 5987 form; nothing in `name` can end the header or start another.
QByteArray contentDisposition(const QString& name);

/// The part of a file of `size` bytes a Range header asks for.
struct Range
{
    enum class Kind { Whole, Part, Unsatisfiable } kind = Kind::Whole;
    qint64 first = 0;
    qint64 last = -1; ///< inclusive
};
/// An invalid header, or several ranges, mean the whole file.
Range parseRange(QByteArrayView header, qint64 size);

inline constexpr char notFound[] = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

} // namespace HttpAnswers

} // namespace nuvrel
