#pragma once

#include <QList>
#include <QStringList>
#include <QTextStream>

namespace nuvrel::cli {

/// Rows of text printed in aligned columns, two spaces apart.
class TextTable final
{
public:
    void addRow(QStringList cells) { m_rows.append(std::move(cells)); }
    void print(QTextStream& out) const;

private:
    QList<QStringList> m_rows;
};

} // namespace nuvrel::cli
