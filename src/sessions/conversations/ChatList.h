#pragma once

#include "engines/conversations/ChatRecords.h"

#include <QAbstractListModel>
#include <QSet>

#include <functional>

namespace nuvrel {

/// The conversations of one source, searched by title or by a number's digits ("06 12 34" finds
/// "+33 6 12 34 56 78"), at most `limit` shown. As a list model, its rows are the conversations shown: typing in the
/// search filters rows instead of rebuilding a list. A checkable list lets the user tick several, which a
/// search keeps ticked.
class ChatList final : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(QString query READ query WRITE setQuery NOTIFY queryChanged)
    Q_PROPERTY(bool truncated READ isTruncated NOTIFY rowsChanged)

public:
    static constexpr int limit = 300;
    static constexpr int ChatIDRole = Qt::UserRole + 1;

    explicit ChatList(QObject* parent = nullptr);

    const QList<MessagesChatInfo>& chats() const { return m_chats; }
    void setChats(QList<MessagesChatInfo> chats);
    QString query() const { return m_query; }
    void setQuery(const QString& query);

    /// The conversations matching the search, at most `limit`.
    const QList<MessagesChatInfo>& visible() const { return m_visible; }
    /// More conversations match than visible() shows.
    bool isTruncated() const { return m_truncated; }

    /// Rows carry a check box (Qt::CheckStateRole).
    void setCheckable(bool checkable) { m_checkable = checkable; }
    /// The ticked conversations, in the list's order, shown or not.
    QList<MessagesChatInfo> ticked() const;
    void setTicked(qint64 id, bool ticked);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

Q_SIGNALS:
    void queryChanged();
    void rowsChanged();
    void tickedChanged();

private:
    void refilter();

    QList<MessagesChatInfo> m_chats;
    QString m_query;
    QList<MessagesChatInfo> m_visible;
    bool m_truncated = false;
    bool m_checkable = false;
    QSet<qint64> m_ticked;
};

} // namespace nuvrel
