#pragma once

#include <QByteArray>
#include <QVariant>

namespace nuvrel::test {

/// A keyed-archive reference; a quint64 in a QVariant would be written as an integer.
struct PlistUid
{
    quint64 value = 0;
};

enum class PlistFormat { Binary, Xml };

/// Writes Qt values as a property list with libplist, an implementation independent of ours.
/// Accepts QVariantMap, QVariantList, QString, integers, double, bool, QDateTime, QByteArray and PlistUid.
QByteArray writePlist(const QVariant& value, PlistFormat format);

} // namespace nuvrel::test

Q_DECLARE_METATYPE(nuvrel::test::PlistUid)
