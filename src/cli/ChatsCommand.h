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

/// `nuvrel-cli chat-pdf DB ID -o FILE.pdf` or `chat-pdf --export FILE.txt -o FILE.pdf`.
int runChatPdf(const CommandLine& line, QTextStream& out, QTextStream& err);
/// `nuvrel-cli verify FILE.pdf`: whether a conversation PDF still matches its fingerprint file.
int runVerify(const CommandLine& line, QTextStream& out, QTextStream& err);

} // namespace nuvrel::cli
