#pragma once

#include "engines/conversations/ConversationError.h"
#include "formats/sqlite/PrivateDatabase.h"
#include "formats/sqlite/SqlError.h"

namespace nuvrel {

/// Runs `body` on a private copy of a conversation database (see PrivateDatabase), with the database
/// layer's failures told as the conversation readers tell them.
template <typename Body>
auto withChatDatabase(const QString& file, Body&& body)
{
    try {
        return withDatabase(file, std::forward<Body>(body));
    } catch (const SqlError& error) {
        if (error.kind() == SqlError::Kind::CopyFailed && error.fileError())
            throw ConversationError::file(*error.fileError());
        throw ConversationError::unreadable();
    }
}

} // namespace nuvrel
