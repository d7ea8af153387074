#include "models/explorer/ChatList.h"

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
    refilter();
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
        return QString(L("%@ messages · dernier le ", Localizer::locale().toString(chat.count)) +
                       Localizer::formatDateTime(chat.last));
    case ListRole::IconName: return QStringLiteral("pdf");
    case ChatIDRole: return chat.id;
    default: return {};
    }
}

} // namespace nuvrel
