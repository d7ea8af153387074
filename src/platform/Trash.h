#pragma once

#include <QString>

#include <optional>

namespace nuvrel {

/// The system's trash: the only way the program lets go of a user's original. Nothing is ever deleted.
class Trash
{
public:
    virtual ~Trash() = default;

    /// Moves a file or folder to the trash; where it now lies, or nothing when it could not be moved
    /// (the original is then untouched).
    virtual std::optional<QString> moveToTrash(const QString& path) = 0;
};

} // namespace nuvrel
