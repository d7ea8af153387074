#include "sessions/conversations/ChatList.h"

#include "ground/ListRoles.h"
#include "l10n/L.h"

namespace nuvrel {

namespace {

// Digits only: a number is found however it is spaced.
QString digitsOf(QStringView text)
{
    QString digits;
    for (const QChar c : text) {
        if (c.isDigit())
            digits += c;
    }
    return digits;
}

// The search, read once per query rather than once per conversation: part of the title, or, for a
// query that is mostly a number, its digits anywhere in the title's digits.
class Filter
{
public:
    explicit Filter(const QString& query)
        : m_query(query.trimmed())
        , m_digits(digitsOf(m_query))
        , m_byNumber(m_digits.size() >= 3 && m_digits.size() * 2 >= m_query.size())
    {}

    bool operator()(const MessagesChatInfo& chat) const
    {
        return m_query.isEmpty() || chat.title.contains(m_query, Qt::CaseInsensitive) ||
               (m_byNumber && digitsOf(chat.title).contains(m_digits));
    }

private:
    QString m_query;
    QString m_digits;
    bool m_byNumber;
};

} // namespace

ChatList::ChatList(QObject* parent)
    : QAbstractListModel(parent)
{}

void ChatList::setChats(QList<MessagesChatInfo> chats)
{
    m_chats = std::move(chats);
    const bool hadTicks = !m_ticked.isEmpty();
    m_ticked.clear();
    refilter();
    if (hadTicks)
        Q_EMIT tickedChanged();
}

QList<MessagesChatInfo> ChatList::ticked() const
{
    QList<MessagesChatInfo> chats;
    for (const MessagesChatInfo& chat : m_chats) {
        if (m_ticked.contains(chat.id))
            chats.append(chat);
    }
    return chats;
}

void ChatList::setTicked(qint64 id, bool ticked)
{
    if (m_ticked.contains(id) == ticked)
        return;
    ticked ? void(m_ticked.insert(id)) : void(m_ticked.remove(id));
    for (qsizetype row = 0; row < m_visible.size(); ++row) {
        if (m_visible[row].id == id)
            Q_EMIT dataChanged(index(int(row)), index(int(row)), {Qt::CheckStateRole});
    }
    Q_EMIT tickedChanged();
}

bool ChatList::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!m_checkable || role != Qt::CheckStateRole || !index.isValid() || index.row() >= rowCount())
        return false;
    setTicked(m_visible.at(index.row()).id, value.value<Qt::CheckState>() == Qt::Checked);
    return true;
}

Qt::ItemFlags ChatList::flags(const QModelIndex& index) const
{
    Qt::ItemFlags flags = QAbstractListModel::flags(index);
    if (m_checkable && index.isValid())
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

void ChatList::setQuery(const QString& query)
{
    if (query == m_query)
        return;
    m_query = query;
    Q_EMIT queryChanged();
    refilter();
}

void ChatList::refilter()
{
    beginResetModel();
    m_visible.clear();
    m_truncated = false;
    const Filter matches(m_query);
    for (const MessagesChatInfo& chat : std::as_const(m_chats)) {
        if (!matches(chat))
            continue;
        if (m_visible.size() == limit) {
            m_truncated = true;
            break;
        }
        m_visible.append(chat);
    }
    endResetModel();
    Q_EMIT rowsChanged();
}

int ChatList::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_visible.size());
}

QVariant ChatList::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const MessagesChatInfo& chat = m_visible.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole: return chat.title;
    case ListRole::Detail:
        if (!chat.last.isValid())
            return LN("%@ message(s)", chat.count, Localizer::locale().toString(chat.count));
        return QString(LN("%@ message(s) · dernier le ", chat.count, Localizer::locale().toString(chat.count)) +
                       Localizer::formatDateTime(chat.last));
    case ListRole::IconName: return QStringLiteral("pdf");
    case ChatIDRole: return chat.id;
    case Qt::CheckStateRole:
        if (!m_checkable)
            return {};
        return m_ticked.contains(chat.id) ? Qt::Checked : Qt::Unchecked;
    default: return {};
    }
}

} // namespace nuvrel
