#pragma once

#include <QDateTime>
#include <QtGlobal>

namespace nuvrel {

/// Seconds between 1970-01-01 and 2001-01-01, the epoch of Apple's dates.
inline constexpr qint64 appleEpochOffsetSeconds = 978307200;

/// A UTC date from milliseconds since 1970; invalid when out of QDateTime's range.
inline QDateTime utcFromMSecsSinceEpoch(qint64 msecs)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    return QDateTime::fromMSecsSinceEpoch(msecs, QTimeZone::UTC);
#else
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
#endif
}

/// A UTC date from seconds since 1970; invalid instead of overflowing for absurd values.
inline QDateTime utcFromSecsSinceEpoch(qint64 secs)
{
    constexpr qint64 limit = std::numeric_limits<qint64>::max() / 1000;
    if (secs > limit || secs < -limit)
        return {};
    return utcFromMSecsSinceEpoch(secs * 1000);
}

} // namespace nuvrel
