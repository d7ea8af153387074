#pragma once

#include <QString>

#include <exception>

namespace nuvrel {

/// The base of the program's errors: each carries what its message needs and words it in the
/// language in force when asked.
class LocalizedError : public std::exception
{
public:
    /// The text for the user, in the language in force.
    virtual QString message() const = 0;
};

/// The kinds of failure the system reports for a file, as the user needs to know them.
enum class SystemErrorKind { NoSpace, NoPermission, ReadOnly, Missing, TooLong, Other };

/// The kind of an errno value.
SystemErrorKind systemErrorKind(int errnoValue);

/// A file could not be read or written, for a reason of the system's: our own localised text for it,
/// never the system's (strerror is English, and too technical).
class FileError final : public LocalizedError
{
public:
    enum class Operation { Read, Write };

    FileError(Operation operation, SystemErrorKind kind, QString path)
        : m_operation(operation)
        , m_kind(kind)
        , m_path(std::move(path))
    {}
    /// From the errno of a failed call.
    static FileError fromErrno(Operation operation, int errnoValue, QString path)
    {
        return FileError(operation, systemErrorKind(errnoValue), std::move(path));
    }

    Operation operation() const { return m_operation; }
    SystemErrorKind kind() const { return m_kind; }
    QString path() const { return m_path; }

    QString message() const override;
    const char* what() const noexcept override;

private:
    Operation m_operation;
    SystemErrorKind m_kind;
    QString m_path;
};

} // namespace nuvrel
