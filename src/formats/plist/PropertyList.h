#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace nuvrel::PropertyList {

/// Whole property-list files (XML or binary) as Qt values, so that no libplist type leaks out.
///
/// Dictionaries become QVariantMap, arrays QVariantList, strings QString, integers qint64, reals double,
/// booleans bool, dates QDateTime in UTC, data QByteArray and keyed-archive UIDs quint64.
/// An unreadable, oversized or unparsable input gives an invalid QVariant.
QVariant fromData(const QByteArray& data);
QVariant readFile(const QString& path);

/// The largest file readFile accepts; a backup's Info.plist carries app icons but stays far below it.
inline constexpr qint64 maxFileSize = qint64(16) * 1024 * 1024;

} // namespace nuvrel::PropertyList
