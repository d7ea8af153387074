#pragma once

#include "ground/SystemError.h"

#include <QString>

#include <exception>
#include <optional>

namespace nuvrel {

/// The one error every conversation reader throws.
class ConversationError final : public LocalizedError
{
public:
    enum class Kind {
        NoAccess,   ///< the system refused to let us read a file (privacy settings, permissions)
        File,       ///< any other failure of a file: missing, a full disk for the private copy…
        Unreadable, ///< read, but not a conversation store or export
        Empty,
        TooLarge,       ///< an export far beyond any real one
        SuspectArchive, ///< an archive that unpacks out of all proportion: a zip bomb
    };

    /// The system refused to let us read `path`.
    static ConversationError noAccess(QString path) { return ConversationError(Kind::NoAccess, std::move(path)); }
    /// A file failed for a reason of the system's; a refused read is noAccess.
    static ConversationError file(FileError error);
    static ConversationError unreadable() { return ConversationError(Kind::Unreadable, {}); }
    static ConversationError empty() { return ConversationError(Kind::Empty, {}); }
    static ConversationError tooLarge(QString path, qint64 limit)
    {
        ConversationError error(Kind::TooLarge, std::move(path));
        error.m_limit = limit;
        return error;
    }

    /// An entry of the archive at `path` is compressed more than `ratio` times.
    static ConversationError suspectArchive(QString path, qint64 ratio)
    {
        ConversationError error(Kind::SuspectArchive, std::move(path));
        error.m_limit = ratio;
        return error;
    }

    Kind kind() const { return m_kind; }
    /// The file the error is about, when it is about one.
    QString path() const { return m_path; }
    const std::optional<FileError>& fileError() const { return m_fileError; }
    /// The text for the user, in the language in force.
    QString message() const override;
    const char* what() const noexcept override;

    friend bool operator==(const ConversationError& a, const ConversationError& b)
    {
        return a.m_kind == b.m_kind && a.m_path == b.m_path;
    }

private:
    ConversationError(Kind kind, QString path)
        : m_kind(kind)
        , m_path(std::move(path))
    {}

    Kind m_kind;
    QString m_path;
    std::optional<FileError> m_fileError;
    qint64 m_limit = 0;
};

} // namespace nuvrel
