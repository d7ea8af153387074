#pragma once

#include <QDateTime>
#include <QFile>
#include <QSet>
#include <QString>

namespace nuvrel {

/// What the photo import has already copied, one key per file, kept across runs in a JSON array of
/// strings ("copied-history.json") so that a later run copies only what is new.
///
/// A run may be killed at any file (a cable pulled, the computer put to sleep and never woken), so
/// each file copied is recorded at once in a journal beside the array, one line per key: appending a
/// line costs the same with ten keys or a hundred thousand, where rewriting the array would not. The
/// journal is folded into the array, atomically, by save() and by the next load.
class CopyHistory final
{
public:
    /// "<data>/Nuvrel/copied-history.json" (Application Support on macOS).
    static QString defaultPath();

    /// The key of a file: the device's name ("iPhone" when empty), its name, its size and its
    /// creation date in whole seconds since 1970, 0 when unknown or absurd.
    static QString key(const QString& deviceName, const QString& fileName, qint64 size, const QDateTime& created);

    explicit CopyHistory(QString path = defaultPath());
    ~CopyHistory();
    Q_DISABLE_COPY_MOVE(CopyHistory)

    /// Reads the array and the journal. Anything missing or unreadable counts as empty: the cost is a
    /// file copied again under a numbered name, never a file skipped.
    void load();
    bool contains(const QString& key) const { return m_keys.contains(key); }
    qsizetype size() const { return m_keys.size(); }
    /// Adds `key` and appends it to the journal, so that it is remembered even if the program dies
    /// next. False when the journal could not be written (the key is still held).
    bool record(const QString& key);
    /// Writes the whole array under a temporary name, puts it in place, then removes the journal.
    /// False when it could not be written; the journal then stays and still counts.
    bool save();
    /// Forgets everything copied, and saves that.
    bool forget();

    QString path() const { return m_path; }
    QString journalPath() const { return m_path + QStringLiteral(".journal"); }

private:
    QString m_path;
    QSet<QString> m_keys;
    QFile m_journal;
};

} // namespace nuvrel
