#include "formats/sqlite/SqlStatement.h"

#include "formats/sqlite/SqlError.h"

#include <sqlite3.h>

namespace nuvrel {

std::optional<SqlStatement> SqlStatement::tryPrepare(sqlite3* db, const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return std::nullopt;
    }
    return SqlStatement(statement);
}

SqlStatement SqlStatement::prepare(sqlite3* db, const char* sql)
{
    std::optional<SqlStatement> statement = tryPrepare(db, sql);
    if (!statement)
        throw SqlError::unreadable();
    return std::move(*statement);
}

SqlStatement::SqlStatement(SqlStatement&& other) noexcept
    : m_statement(std::exchange(other.m_statement, nullptr))
{}

SqlStatement::~SqlStatement()
{
    sqlite3_finalize(m_statement);
}

void SqlStatement::bind(int parameter, qint64 value)
{
    if (sqlite3_bind_int64(m_statement, parameter, value) != SQLITE_OK)
        throw SqlError::unreadable();
}

void SqlStatement::bind(int parameter, QByteArrayView utf8)
{
    if (sqlite3_bind_text64(m_statement, parameter, utf8.data() ? utf8.data() : "",
                            static_cast<sqlite3_uint64>(utf8.size()), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK)
        throw SqlError::unreadable();
}

bool SqlStatement::next()
{
    switch (sqlite3_step(m_statement)) {
    case SQLITE_ROW: return true;
    case SQLITE_DONE: return false;
    default: throw SqlError::unreadable();
    }
}

void SqlStatement::reset()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

bool SqlStatement::isNull(int column) const
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

bool SqlStatement::isText(int column) const
{
    return sqlite3_column_type(m_statement, column) == SQLITE_TEXT;
}

QByteArrayView SqlStatement::textBytes(int column) const
{
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    return bytes ? QByteArrayView(bytes, sqlite3_column_bytes(m_statement, column)) : QByteArrayView();
}

qint64 SqlStatement::int64(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

double SqlStatement::real(int column) const
{
    return sqlite3_column_double(m_statement, column);
}

std::optional<QString> SqlStatement::text(int column) const
{
    if (isNull(column))
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    return QString::fromUtf8(bytes, sqlite3_column_bytes(m_statement, column));
}

QByteArrayView SqlStatement::blobBytes(int column) const
{
    // The pointer first, then the size: the order SQLite asks for.
    const void* bytes = sqlite3_column_blob(m_statement, column);
    const int size = sqlite3_column_bytes(m_statement, column);
    return bytes && size > 0 ? QByteArrayView(static_cast<const char*>(bytes), size) : QByteArrayView();
}

QByteArray SqlStatement::blob(int column) const
{
    const int size = sqlite3_column_bytes(m_statement, column);
    if (size <= 0)
        return {};
    return QByteArray(static_cast<const char*>(sqlite3_column_blob(m_statement, column)), size);
}

} // namespace nuvrel
