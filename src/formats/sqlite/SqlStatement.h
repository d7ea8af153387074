#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

struct sqlite3;
struct sqlite3_stmt;

namespace nuvrel {

/// One prepared SQLite statement. Every failure is SqlError::unreadable: SQLite's own messages
/// never reach the user.
class SqlStatement final
{
public:
    /// The statement, or an unreadable error when it does not prepare.
    static SqlStatement prepare(sqlite3* db, const char* sql);
    /// The statement, or nothing when it does not prepare (a table of another schema generation).
    static std::optional<SqlStatement> tryPrepare(sqlite3* db, const char* sql);

    SqlStatement(SqlStatement&& other) noexcept;
    SqlStatement& operator=(SqlStatement&&) = delete;
    SqlStatement(const SqlStatement&) = delete;
    SqlStatement& operator=(const SqlStatement&) = delete;
    ~SqlStatement();

    void bind(int parameter, qint64 value);
    /// Binds UTF-8 text (copied: the view need not outlive the call).
    void bind(int parameter, QByteArrayView utf8);
    /// Steps to the next row: true on a row, false at the end.
    bool next();
    void reset();

    bool isNull(int column) const;
    bool isText(int column) const;
    qint64 int64(int column) const;
    double real(int column) const;
    /// The column as text, or nothing when it is NULL.
    std::optional<QString> text(int column) const;
    QByteArray blob(int column) const;
    /// The column's bytes without a copy: valid until the next step; empty for NULL or an empty blob.
    QByteArrayView blobBytes(int column) const;
    /// The column's UTF-8 bytes, without a copy: valid until the next step.
    QByteArrayView textBytes(int column) const;

private:
    explicit SqlStatement(sqlite3_stmt* statement)
        : m_statement(statement)
    {}
    sqlite3_stmt* m_statement = nullptr;
};

} // namespace nuvrel
