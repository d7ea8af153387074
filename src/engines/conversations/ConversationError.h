#pragma once

#include "ground/SystemError.h"

#include <QString>

#include <exception>

namespace nuvrel {

/// The one error every conversation reader throws.
class ConversationError final : public LocalizedError
{
public:
    enum class Kind { NoAccess, Unreadable, Empty };

    /// A database or a companion file could not be copied; `detail` is the localised reason.
    static ConversationError noAccess(QString detail) { return ConversationError(Kind::NoAccess, std::move(detail)); }
    static ConversationError unreadable() { return ConversationError(Kind::Unreadable, {}); }
    static ConversationError empty() { return ConversationError(Kind::Empty, {}); }

    Kind kind() const { return m_kind; }
    QString detail() const { return m_detail; }
    /// The text for the user, in the language in force.
    QString message() const override;
    const char* what() const noexcept override;

    friend bool operator==(const ConversationError& a, const ConversationError& b)
    {
        return a.m_kind == b.m_kind && a.m_detail == b.m_detail;
    }

private:
    ConversationError(Kind kind, QString detail)
        : m_kind(kind)
        , m_detail(std::move(detail))
    {}

    Kind m_kind;
    QString m_detail;
};

} // namespace nuvrel
