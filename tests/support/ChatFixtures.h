#pragma once

#include <QByteArray>
#include <QString>

struct sqlite3;

namespace nuvrel::test {

/// An attributedBody blob as Messages writes it: a typedstream NSAttributedString around `text`.
QByteArray attributedBody(const QString& text);

/// A database built statement by statement; fails the test program on any SQL error.
class FixtureDatabase
{
public:
    explicit FixtureDatabase(const QString& path);
    ~FixtureDatabase();
    FixtureDatabase(const FixtureDatabase&) = delete;
    FixtureDatabase& operator=(const FixtureDatabase&) = delete;

    void exec(const QString& sql);
    /// Runs one INSERT with a blob bound to its single "?".
    void execWithBlob(const QString& sql, const QByteArray& blob);
    sqlite3* handle() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
};

/// The tables of a recent Messages database (iOS 17, macOS 14), as far as any reader looks.
void createModernMessagesSchema(FixtureDatabase& db);
/// The WhatsApp Core Data tables the reader uses.
void createWhatsAppSchema(FixtureDatabase& db);

/// A small, lifelike Messages database: two conversations in French, one of them a group, with a
/// photo and a reaction; `path` must not exist yet.
void writeSampleMessagesDatabase(const QString& path);

/// A small, lifelike WhatsApp store: a conversation with Ana (a photo and a document among the messages)
/// and a family group; `path` must not exist yet.
void writeSampleWhatsAppDatabase(const QString& path);

/// A large Messages database for benchmarks: `messages` rows spread over `chats` conversations, of
/// which conversation 1 holds `bigChat` rows; texts mostly in the text column, some only in attributedBody.
void writeLargeMessagesDatabase(const QString& path, int messages, int chats, int bigChat);

/// A small WhatsApp export in the iPhone layout, as the messenger writes it (marks and all).
QString sampleWhatsAppExport();

} // namespace nuvrel::test
