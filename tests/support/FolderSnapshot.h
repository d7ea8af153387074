#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

namespace nuvrel::test {

/// Every file and link below `folder` (hidden ones too, links not followed), as "relative path" →
/// SHA-256 of the contents and the modification time: equal snapshots mean nothing was written.
QMap<QString, QByteArray> snapshot(const QString& folder);

/// Every entry below `folder` (files, folders, links, hidden ones too), as paths relative to it.
QStringList allEntries(const QString& folder);

} // namespace nuvrel::test
