#pragma once

#include <QString>

#include <exception>

namespace nuvrel {

/// A database could not be read: its copy failed (with our own localised reason), or SQLite refused
/// it. SQLite's own messages never reach the user; each engine words this error for its page.
class SqlError final : public std::exception
{
public:
    enum class Kind { CopyFailed, Unreadable };

    static SqlError copyFailed(QString reason) { return SqlError(Kind::CopyFailed, std::move(reason)); }
    static SqlError unreadable() { return SqlError(Kind::Unreadable, {}); }

    Kind kind() const { return m_kind; }
    /// For CopyFailed: why, localised ("fichier introuvable : …").
    QString reason() const { return m_reason; }
    const char* what() const noexcept override
    {
        return m_kind == Kind::CopyFailed ? "cannot copy the database" : "cannot read the database";
    }

private:
    SqlError(Kind kind, QString reason)
        : m_kind(kind)
        , m_reason(std::move(reason))
    {}

    Kind m_kind;
    QString m_reason;
};

} // namespace nuvrel
