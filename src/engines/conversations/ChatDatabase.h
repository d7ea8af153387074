#pragma once

#include "engines/conversations/ConversationError.h"
#include "formats/sqlite/PrivateDatabase.h"
#include "formats/sqlite/SqlError.h"

#include <memory>
#include <mutex>

namespace nuvrel {

/// The database layer's failure, told as the conversation readers tell theirs.
[[noreturn]] inline void throwAsConversationError(const SqlError& error)
{
    if (error.kind() == SqlError::Kind::CopyFailed && error.fileError())
        throw ConversationError::file(*error.fileError());
    throw ConversationError::unreadable();
}

/// Runs `body` on a private copy of a conversation database (see PrivateDatabase), with the database
/// layer's failures told as the conversation readers tell them.
template <typename Body>
auto withChatDatabase(const QString& file, Body&& body)
{
    try {
        return withDatabase(file, std::forward<Body>(body));
    } catch (const SqlError& error) {
        throwAsConversationError(error);
    }
}

/// A private copy of a conversation database, made on first use and kept until destroyed: every
/// listing and reading of one source (a batch of PDFs, an explorer session) goes to the same copy,
/// instead of copying a database of hundreds of megabytes again for each conversation. Safe to use
/// from several threads: one reading at a time.
class KeptChatDatabase final
{
public:
    explicit KeptChatDatabase(QString file)
        : m_file(std::move(file))
    {}

    /// Runs `body` with the copy's connection, copying first when no copy is made yet; failures
    /// as withChatDatabase tells them. A copy that failed is tried again on the next call.
    template <typename Body>
    auto with(Body&& body) const
    {
        const std::lock_guard lock(m_mutex);
        try {
            if (!m_copy)
                m_copy = std::make_unique<PrivateDatabase>(m_file);
            return body(m_copy->handle());
        } catch (const SqlError& error) {
            throwAsConversationError(error);
        }
    }

private:
    QString m_file;
    mutable std::mutex m_mutex;
    mutable std::unique_ptr<PrivateDatabase> m_copy;
};

} // namespace nuvrel
