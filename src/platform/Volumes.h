#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace nuvrel {

/// One mounted volume, as the user knows it.
struct Volume
{
    QString root; ///< where it is mounted
    QString name; ///< its label, or the last part of its root
    qint64 total = 0;
    qint64 available = 0; ///< for this user
    bool readOnly = false;

    friend bool operator==(const Volume&, const Volume&) = default;
};

/// The volumes of this computer: where a destination lies and how much room it has.
class Volumes
{
public:
    virtual ~Volumes() = default;

    /// The volume that holds `path` (or would, for a folder still to be made).
    virtual std::optional<Volume> volumeOf(const QString& path) = 0;
    /// The volumes a user may write to, in the system's order.
    virtual QList<Volume> mounted() = 0;
};

} // namespace nuvrel
