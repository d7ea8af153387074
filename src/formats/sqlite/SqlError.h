#pragma once

#include "ground/SystemError.h"

#include <exception>
#include <optional>

namespace nuvrel {

/// A database could not be read: its copy failed (the file that failed and why), or SQLite refused it. SQLite's own
/// messages never reach the user; each engine words this error for its page.
class SqlError final : public std::exception
{
public:
    enum class Kind { CopyFailed, Unreadable };

    static SqlError copyFailed(FileError why) { return SqlError(Kind::CopyFailed, std::move(why)); }
    static SqlError unreadable() { return SqlError(Kind::Unreadable, std::nullopt); }

    Kind kind() const { return m_kind; }
    /// For CopyFailed: the file that could not be read (the database) or written (its copy), and why.
    const std::optional<FileError>& fileError() const { return m_fileError; }
    const char* what() const noexcept override
    {
        return m_kind == Kind::CopyFailed ? "cannot copy the database" : "cannot read the database";
    }

private:
    SqlError(Kind kind, std::optional<FileError> why)
        : m_kind(kind)
        , m_fileError(std::move(why))
    {}

    Kind m_kind;
    std::optional<FileError> m_fileError;
};

} // namespace nuvrel
