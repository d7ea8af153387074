#include "platform/system/ImobilePhoneWatcher.h"
#include "formats/plist/PropertyList.h"
#include "support/PlistWriter.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

// usbmuxd as libusbmuxd talks to it: a 16-byte header (length, version 1, message 8 for a property
// list, tag), then an XML property list. It knows one phone, announces it to listeners when told,
// lists it, and refuses every connection to it: the phone's services are not there.
class FakeMuxd final : public QObject
{
public:
    explicit FakeMuxd(const QString& path)
    {
        QLocalServer::removeServer(path);
        m_server.listen(path);
        connect(&m_server, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket* client = m_server.nextPendingConnection()) {
                connect(client, &QLocalSocket::readyRead, this, [this, client] { read(client); });
                connect(client, &QLocalSocket::disconnected, client, &QObject::deleteLater);
            }
        });
    }

    bool isListening() const { return m_server.isListening(); }
    int listeners() const { return int(m_listeners.size()); }

    void attach(const QString& udid)
    {
        m_udid = udid;
        for (QLocalSocket* listener : std::as_const(m_listeners))
            send(listener, 0,
                 {{QStringLiteral("MessageType"), QStringLiteral("Attached")},
                  {QStringLiteral("DeviceID"), deviceId},
                  {QStringLiteral("Properties"), properties()}});
    }
    void detach()
    {
        for (QLocalSocket* listener : std::as_const(m_listeners))
            send(listener, 0,
                 {{QStringLiteral("MessageType"), QStringLiteral("Detached")}, {QStringLiteral("DeviceID"), deviceId}});
        m_udid.clear();
    }

private:
    static constexpr qint64 deviceId = 7;

    QVariantMap properties() const
    {
        return {{QStringLiteral("ConnectionType"), QStringLiteral("USB")},
                {QStringLiteral("DeviceID"), deviceId},
                {QStringLiteral("LocationID"), qint64(0)},
                {QStringLiteral("ProductID"), qint64(0x12a8)},
                {QStringLiteral("ConnectionSpeed"), qint64(480000000)},
                {QStringLiteral("SerialNumber"), m_udid}};
    }

    static void send(QLocalSocket* socket, quint32 tag, const QVariantMap& message)
    {
        const QByteArray body = writePlist(message, PlistFormat::Xml);
        QByteArray header(16, '\0');
        qToLittleEndian<quint32>(quint32(16 + body.size()), header.data());
        qToLittleEndian<quint32>(1, header.data() + 4);
        qToLittleEndian<quint32>(8, header.data() + 8);
        qToLittleEndian<quint32>(tag, header.data() + 12);
        socket->write(header + body);
        socket->flush();
    }

    void read(QLocalSocket* client)
    {
        QByteArray& pending = m_pending[client];
        pending += client->readAll();
        while (pending.size() >= 16) {
            const quint32 length = qFromLittleEndian<quint32>(pending.constData());
            if (length < 16 || quint32(pending.size()) < length)
                return;
            const quint32 tag = qFromLittleEndian<quint32>(pending.constData() + 12);
            const QVariantMap request = PropertyList::fromData(pending.mid(16, length - 16)).toMap();
            pending.remove(0, length);
            answer(client, tag, request.value(QStringLiteral("MessageType")).toString());
        }
    }

    void answer(QLocalSocket* client, quint32 tag, const QString& type)
    {
        const auto result = [&](qint64 number) {
            send(client, tag,
                 {{QStringLiteral("MessageType"), QStringLiteral("Result")}, {QStringLiteral("Number"), number}});
        };
        if (type == u"Listen") {
            result(0);
            m_listeners.append(client);
            if (!m_udid.isEmpty())
                attach(m_udid);
        } else if (type == u"ListDevices") {
            QVariantList devices;
            if (!m_udid.isEmpty())
                devices.append(QVariantMap{{QStringLiteral("MessageType"), QStringLiteral("Attached")},
                                           {QStringLiteral("DeviceID"), deviceId},
                                           {QStringLiteral("Properties"), properties()}});
            send(client, tag, {{QStringLiteral("DeviceList"), devices}});
        } else if (type == u"Connect") {
            result(3); // connection refused
        } else {
            result(1); // bad command
        }
    }

    QLocalServer m_server;
    QList<QPointer<QLocalSocket>> m_listeners;
    QHash<QLocalSocket*, QByteArray> m_pending;
    QString m_udid;
};

const QString udid = QStringLiteral("00008030-001A2B3C4D5E6F70");

} // namespace

TEST(ImobilePhoneWatcher, NoMuxdMeansNoDeviceAndAFakeMuxdsArrivalsAndRemovalsAreFollowed)
{
    QTemporaryDir folder;
    const QString socket = folder.filePath(QStringLiteral("usbmuxd"));
    qputenv("USBMUXD_SOCKET_ADDRESS", "UNIX:" + QFile::encodeName(socket));

    ImobilePhoneWatcher watcher;
    QList<PhoneWatcher::State> seen;
    QObject::connect(&watcher, &PhoneWatcher::stateChanged, [&] { seen.append(watcher.state()); });

    // Nothing listens: no phone can be seen.
    watcher.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return watcher.state() == PhoneWatcher::State::NoDevice; }, 10'000));
    EXPECT_EQ(watcher.camera(), nullptr);
    watcher.stop();

    // usbmuxd comes up; a phone is plugged, then pulled.
    FakeMuxd muxd(socket);
    ASSERT_TRUE(muxd.isListening());
    seen.clear();
    watcher.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return muxd.listeners() > 0; }, 10'000));
    muxd.attach(udid);
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen.contains(PhoneWatcher::State::Connecting); }, 10'000));
    // Its services refuse every connection: not a phone we can read, but still there.
    EXPECT_NE(watcher.state(), PhoneWatcher::State::NoDevice);
    EXPECT_NE(watcher.state(), PhoneWatcher::State::Ready);
    EXPECT_EQ(watcher.camera(), nullptr);
    muxd.detach();
    ASSERT_TRUE(QTest::qWaitFor([&] { return watcher.state() == PhoneWatcher::State::NoDevice; }, 10'000));
    watcher.stop();
    qunsetenv("USBMUXD_SOCKET_ADDRESS");
}

TEST(ImobilePhoneWatcher, TheLockdownAnswersGiveThePhonesStates)
{
    // libimobiledevice's own codes: a locked phone, a pending or refused trust question.
    EXPECT_EQ(ImobilePhoneWatcher::stateOfHandshake(0), PhoneWatcher::State::Ready);
    EXPECT_EQ(ImobilePhoneWatcher::stateOfHandshake(-17), PhoneWatcher::State::Locked);
    EXPECT_EQ(ImobilePhoneWatcher::stateOfHandshake(-19), PhoneWatcher::State::Locked);
    EXPECT_EQ(ImobilePhoneWatcher::stateOfHandshake(-18), PhoneWatcher::State::Refused);
    EXPECT_EQ(ImobilePhoneWatcher::stateOfHandshake(-8), PhoneWatcher::State::Connecting);
    EXPECT_EQ(ImobilePhoneWatcher::stateOfHandshake(-256), PhoneWatcher::State::Failed);
}
