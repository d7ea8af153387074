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

} // namespace

ChatList::ChatList(QObject* parent)
    : QAbstractListModel(parent)
{}

bool ChatList::matches(const MessagesChatInfo& chat, const QString& query)
{
    const QString trimmed = query.trimmed();
    if (trimmed.isEmpty() || chat.title.contains(trimmed, Qt::CaseInsensitive))
        return true;
    const QString digits = digitsOf(trimmed);
    const bool byNumber = digits.size() >= 3 && digits.size() * 2 >= trimmed.size();
    return byNumber && digitsOf(chat.title).contains(digits);
}

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
    for (const MessagesChatInfo& chat : std::as_const(m_chats)) {
        if (!matches(chat, m_query))
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
