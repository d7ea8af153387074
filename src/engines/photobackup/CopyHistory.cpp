#include "engines/photobackup/CopyHistory.h"

#include "ground/NewFile.h"
#include "ground/RegularFile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>

#include <algorithm>

namespace nuvrel {

namespace {

// Far above a lifetime of photos (a key is about 60 bytes), far below what would exhaust memory.
constexpr qint64 maxHistoryBytes = qint64(512) * 1024 * 1024;

// Dates at or beyond this many seconds from 1970 (year 2096) come from a broken clock: key them as 0.
constexpr qint64 maxKeyedSeconds = 4'000'000'000;

QByteArray readWhole(const QString& path)
{
    QFile file;
    if (!openRegularFile(file, path, {.maxSize = maxHistoryBytes, .noFollow = false}))
        return {};
    return file.readAll();
}

void addStrings(const QJsonArray& array, QSet<QString>& into)
{
    for (const auto& value : array) {
        if (value.isString())
            into.insert(value.toString());
    }
}

} // namespace

QString CopyHistory::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/Nuvrel/copied-history.json");
}

QString CopyHistory::key(const QString& deviceName, const QString& fileName, qint64 size, const QDateTime& created)
{
    qint64 seconds = created.isValid() ? created.toMSecsSinceEpoch() / 1000 : 0; // truncated toward zero
    if (seconds >= maxKeyedSeconds || seconds <= -maxKeyedSeconds)
        seconds = 0;
    return (deviceName.isEmpty() ? QStringLiteral("iPhone") : deviceName) + u'|' + fileName + u'|' +
           QString::number(size) + u'|' + QString::number(seconds);
}

CopyHistory::CopyHistory(QString path)
    : m_path(std::move(path))
{}

CopyHistory::~CopyHistory() = default;

void CopyHistory::load()
{
    m_journal.close();
    m_keys.clear();
    // An array that is not an array of strings counts as empty, as a whole: a file of ours that
    // something else rewrote is not to be half believed.
    const QJsonDocument document = QJsonDocument::fromJson(readWhole(m_path));
    if (document.isArray()) {
        const QJsonArray array = document.array();
        if (std::all_of(array.begin(), array.end(), [](const QJsonValue& value) { return value.isString(); }))
            addStrings(array, m_keys);
    }
    // Each journal line is a one-key array; a line cut by a crash does not parse and is dropped.
    const QByteArray journal = readWhole(journalPath());
    if (journal.isEmpty())
        return;
    for (const QByteArray& line : journal.split('\n')) {
        const QJsonDocument entry = QJsonDocument::fromJson(line);
        if (entry.isArray())
            addStrings(entry.array(), m_keys);
    }
    save();
}

bool CopyHistory::record(const QString& key)
{
    m_keys.insert(key);
    if (!m_journal.isOpen()) {
        QDir().mkpath(QFileInfo(m_path).absolutePath());
        m_journal.setFileName(journalPath());
        if (!m_journal.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
            return false;
    }
    // JSON escapes line breaks, so a key from a hostile device name stays on its line.
    const QByteArray line = QJsonDocument(QJsonArray{key}).toJson(QJsonDocument::Compact) + '\n';
    return m_journal.write(line) == line.size();
}

bool CopyHistory::save()
{
    m_journal.close();
    QJsonArray array;
    for (const QString& key : std::as_const(m_keys))
        array.append(key);
    try {
        NewFile out(m_path, FreeNameStyle::Hyphenated);
        const QByteArray bytes = QJsonDocument(array).toJson(QJsonDocument::Compact);
        if (out.device().write(bytes) != bytes.size())
            return false;
        out.commitReplacing();
    } catch (const std::exception&) {
        return false;
    }
    QFile::remove(journalPath());
    return true;
}

bool CopyHistory::forget()
{
    m_keys.clear();
    return save();
}

} // namespace nuvrel
