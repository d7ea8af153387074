#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace nuvrel::test {

/// What curl got: the status (0 when nothing answered) and the body.
struct Fetched
{
    int status = 0;
    QByteArray body;
    QByteArray head; ///< the answer's head as it came, when asked with "-D"
};

/// curl in its own process, the caller's event loop turning meanwhile (the server under test may
/// live on this thread). `extra`: more curl options.
Fetched fetch(const QString& url, const QStringList& extra = {});

} // namespace nuvrel::test
