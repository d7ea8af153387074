#pragma once

#include "cli/CommandLine.h"

#include <QTextStream>

namespace nuvrel::cli {

/// `nuvrel-cli chats DB`: the conversations of a Messages or WhatsApp database.
int runChats(const CommandLine& line, QTextStream& out, QTextStream& err);
/// `nuvrel-cli chat DB ID`: one conversation of a database.
int runChat(const CommandLine& line, QTextStream& out, QTextStream& err);
/// `nuvrel-cli chat-export FILE`: a conversation exported by WhatsApp as text.
int runChatExport(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
