#pragma once

#include "platform/PhoneCamera.h"

#include <QHash>
#include <cstring>

#include <atomic>
#include <functional>
#include <thread>

namespace nuvrel::test {

/// How one file of a ScriptedCamera misbehaves.
struct CameraScript
{
    QString refuseOpen;         ///< open() fails with this text
    qint64 failAfterBytes = -1; ///< the read fails once this many bytes were given
    bool hang = false;          ///< the first read does not return until release()
    QByteArray extraBytes;      ///< given after the listed content: a file that grows
    qint64 chunk = 0;           ///< bytes per read, when not as many as asked
    int pauseMs = 0;            ///< before each read: a slow cable

    static CameraScript refused(QString text)
    {
        CameraScript script;
        script.refuseOpen = std::move(text);
        return script;
    }
    static CameraScript pulledAfter(qint64 bytes)
    {
        CameraScript script;
        script.failAfterBytes = bytes;
        return script;
    }
    static CameraScript silent()
    {
        CameraScript script;
        script.hang = true;
        return script;
    }
    static CameraScript dripping(qint64 chunk, int pauseMs)
    {
        CameraScript script;
        script.chunk = chunk;
        script.pauseMs = pauseMs;
        return script;
    }
    static CameraScript growing(QByteArray extra)
    {
        CameraScript script;
        script.extraBytes = std::move(extra);
        return script;
    }
};

/// A camera whose files are bytes in memory and whose failures are scripted by file name: a phone
/// that refuses a file, one that stops answering, a cable pulled mid-file.
class ScriptedCamera final : public CameraSource
{
public:
    explicit ScriptedCamera(QString name = QStringLiteral("iPhone de Test"), Kind kind = Kind::Phone)
        : m_name(std::move(name))
        , m_kind(kind)
    {}
    ~ScriptedCamera() override { release(); }

    void add(const CameraFile& file, const QByteArray& content, const CameraScript& script = CameraScript())
    {
        m_files.append(file);
        m_content.insert(file.path, content);
        m_scripts.insert(file.path, script);
    }
    /// Lets hanging reads return (with a failure).
    void release() { m_released = true; }
    void setPresent(bool present) { m_present = present; }
    /// Called as each file is opened, on the reader's thread.
    std::function<void(const CameraFile&)> onOpen;
    int opened() const { return m_opened; }
    int reconnections() const { return m_reconnections; }

    Kind kind() const override { return m_kind; }
    QString deviceName() const override { return m_name; }
    QList<CameraFile> mediaFiles(const std::atomic<bool>*) override
    {
        if (listPauseMs > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(listPauseMs));
        return m_files;
    }
    /// Listing takes this long: a phone slow to answer.
    int listPauseMs = 0;
    bool isPresent() override { return m_present; }
    void reconnect() override { ++m_reconnections; }

    std::unique_ptr<CameraFileReader> open(const CameraFile& file, QString& error) override
    {
        ++m_opened;
        if (onOpen)
            onOpen(file);
        const CameraScript script = m_scripts.value(file.path);
        if (!script.refuseOpen.isEmpty() || !m_present) {
            error = m_present ? script.refuseOpen : QStringLiteral("device gone");
            return nullptr;
        }
        return std::make_unique<Reader>(m_content.value(file.path) + script.extraBytes, script, m_released);
    }

private:
    class Reader final : public CameraFileReader
    {
    public:
        Reader(QByteArray bytes, CameraScript script, const std::atomic<bool>& released)
            : m_bytes(std::move(bytes))
            , m_script(std::move(script))
            , m_released(released)
        {}
        qint64 read(char* into, qint64 capacity) override
        {
            if (m_script.hang) {
                while (!m_released)
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                m_error = QStringLiteral("released");
                return -1;
            }
            if (m_script.failAfterBytes >= 0 && m_at >= m_script.failAfterBytes) {
                m_error = QStringLiteral("cable pulled");
                return -1;
            }
            if (m_script.pauseMs > 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(m_script.pauseMs));
            qint64 room = std::min<qint64>(capacity, m_bytes.size() - m_at);
            if (m_script.chunk > 0)
                room = std::min(room, m_script.chunk);
            if (m_script.failAfterBytes >= 0)
                room = std::min(room, m_script.failAfterBytes - m_at);
            std::memcpy(into, m_bytes.constData() + m_at, size_t(room));
            m_at += room;
            return room;
        }
        QString errorText() const override { return m_error; }

    private:
        QByteArray m_bytes;
        CameraScript m_script;
        const std::atomic<bool>& m_released;
        qint64 m_at = 0;
        QString m_error;
    };

    QString m_name;
    Kind m_kind;
    QList<CameraFile> m_files;
    QHash<QString, QByteArray> m_content;
    QHash<QString, CameraScript> m_scripts;
    std::atomic<bool> m_released{false};
    std::atomic<bool> m_present{true};
    std::atomic<int> m_opened{0};
    std::atomic<int> m_reconnections{0};
};

} // namespace nuvrel::test
