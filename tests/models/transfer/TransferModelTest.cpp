// The "Mac vers iPhone" page's model, serving on loopback with curl as the phone: what it serves and
// shows, what it says when it cannot serve, what stopping and destroying take away, and the nearby
// share's answers through a scripted fake.

#include "models/transfer/TransferModel.h"
#include "l10n/L.h"
#include "l10n/LanguageStore.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"
#include "support/HttpFetch.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QList<LocalAddress> loopback()
{
    return {{QHostAddress::LocalHost, QStringLiteral("lo"), false}};
}

class TransferModelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (QStandardPaths::findExecutable(QStringLiteral("curl")).isEmpty())
            GTEST_SKIP() << "curl is not installed";
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        m_video = m_root.filePath(QStringLiteral("a <b> & c.mov"));
        m_bytes = noise(3'000'001, 7);
        writeFile(m_video, m_bytes);
        m_folder = m_root.filePath(QStringLiteral("Vacances"));
        writeFile(m_folder + QStringLiteral("/IMG_0001.JPG"), noise(10'000, 8));
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    static bool serving(const TransferModel& model)
    {
        return QTest::qWaitFor([&] { return !model.isPreparing(); }, 20'000) && model.isRunning();
    }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_root;
    QString m_video;
    QString m_folder;
    QByteArray m_bytes;
    FakeServices m_fakes;
};

} // namespace

TEST_F(TransferModelTest, ServesTheChosenFilesAndFoldersAndShowsEachDownload)
{
    TransferModel model(m_fakes.services(), &loopback);
    model.setItems({m_video});
    model.addItems({m_folder, m_video}); // dropped again: once in the list
    ASSERT_EQ(model.items(), (QStringList{m_video, m_folder}));
    model.start();
    ASSERT_TRUE(serving(model)) << qPrintable(model.status());
    EXPECT_TRUE(model.urlString().startsWith(QStringLiteral("http://127.0.0.1:")));
    EXPECT_EQ(model.status(), QStringLiteral("Prêt : 2 fichiers à télécharger."));
    ASSERT_EQ(model.servedFiles().size(), 2);
    EXPECT_EQ(model.servedFiles()[1].name, QStringLiteral("Vacances.zip"));
    const QString archive = model.servedFiles()[1].path;
    EXPECT_TRUE(QFileInfo::exists(archive));
    // The code's image: one pixel per module with its quiet zone, for the view to scale.
    EXPECT_EQ(model.qrImage().width(), model.qrImage().height());
    EXPECT_GE(model.qrImage().width(), 21 + 8);
    // The list and the chosen items are frozen while serving.
    model.setItems({});
    EXPECT_EQ(model.items().size(), 2);

    const Fetched index = fetch(model.urlString());
    EXPECT_EQ(index.status, 200);
    EXPECT_TRUE(index.body.contains("a &lt;b&gt; &amp; c.mov</a>")) << index.body.constData();
    // A browser's probe of a video is no download; the download that follows is.
    EXPECT_EQ(fetch(model.urlString() + QStringLiteral("f/0"), {QStringLiteral("-r"), QStringLiteral("0-1")}).status,
              206);
    const Fetched whole = fetch(model.urlString() + QStringLiteral("f/0"));
    EXPECT_TRUE(whole.body == m_bytes);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return !model.downloads().isEmpty() &&
                   model.downloads().constLast().state != TransferModel::Download::State::Running;
        },
        10'000));
    ASSERT_EQ(model.downloads().size(), 1);
    EXPECT_EQ(model.downloads()[0].name, QStringLiteral("a <b> & c.mov"));
    EXPECT_EQ(model.downloads()[0].state, TransferModel::Download::State::Done);
    EXPECT_EQ(model.downloads()[0].sent, m_bytes.size());
    EXPECT_EQ(model.status(), QStringLiteral("Fichier envoyé !"));

    // Stopped: nothing answers any more, and the archive made for the run is gone.
    const QString url = model.urlString();
    model.stop();
    EXPECT_FALSE(model.isRunning());
    EXPECT_TRUE(model.urlString().isEmpty());
    EXPECT_TRUE(model.qrImage().isNull());
    EXPECT_EQ(fetch(url).status, 0);
    EXPECT_FALSE(QFileInfo::exists(archive));
    EXPECT_EQ(model.status(), QStringLiteral("Envoi arrêté."));

    // Started again: a new port or token, never the old address.
    model.start();
    ASSERT_TRUE(serving(model));
    EXPECT_NE(model.urlString(), url);
    model.changeFiles();
    EXPECT_FALSE(model.isRunning());
    EXPECT_TRUE(model.items().isEmpty());
    EXPECT_TRUE(model.downloads().isEmpty());
}

TEST_F(TransferModelTest, SaysWhyItCannotServeAndStopsWithTheModel)
{
    {
        TransferModel offline(m_fakes.services(), [] { return QList<LocalAddress>(); });
        offline.setItems({m_video});
        offline.start();
        EXPECT_FALSE(offline.isPreparing());
        EXPECT_FALSE(offline.isRunning());
        EXPECT_EQ(offline.status(), L("Connecte le Mac au Wi-Fi pour utiliser l'envoi local."));
    }
    {
        // An address this machine does not have: the listener cannot start.
        TransferModel elsewhere(m_fakes.services(), [] {
            return QList<LocalAddress>{{QHostAddress(QStringLiteral("192.0.2.1")), QStringLiteral("eth9"), false}};
        });
        elsewhere.setItems({m_video});
        elsewhere.start();
        ASSERT_TRUE(QTest::qWaitFor([&] { return !elsewhere.isPreparing(); }, 20'000));
        EXPECT_FALSE(elsewhere.isRunning());
        EXPECT_EQ(elsewhere.status(), QStringLiteral("Impossible de démarrer le partage Wi-Fi."));
    }
    {
        // Nothing that can be read: nothing served, and the reason.
        TransferModel model(m_fakes.services(), &loopback);
        model.setItems({m_root.filePath(QStringLiteral("gone.mov"))});
        model.start();
        ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isPreparing(); }, 20'000));
        EXPECT_FALSE(model.isRunning());
        EXPECT_EQ(model.status(), QStringLiteral("Rien à envoyer : gone.mov n'a pas pu être lu ou compressé."));
    }
    {
        // Stopped while its folder is compressed: nothing is served, however the work ends.
        writeFile(m_folder + QStringLiteral("/scan.bin"), noise(40'000'000, 9));
        TransferModel model(m_fakes.services(), &loopback);
        model.setItems({m_folder});
        model.start();
        ASSERT_TRUE(model.isPreparing());
        EXPECT_EQ(model.status(), QStringLiteral("Préparation du dossier (compression)…"));
        model.stop();
        ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isPreparing(); }, 60'000));
        QTest::qWait(50);
        EXPECT_FALSE(model.isRunning());
        EXPECT_TRUE(model.urlString().isEmpty());
        EXPECT_TRUE(model.status().isEmpty());
    }
    QString url;
    {
        auto model = std::make_unique<TransferModel>(m_fakes.services(), &loopback);
        model->setItems({m_video});
        model->start();
        ASSERT_TRUE(serving(*model));
        url = model->urlString();
        ASSERT_EQ(fetch(url).status, 200);
    }
    EXPECT_EQ(fetch(url).status, 0); // the page's model is gone, and its server with it
}

TEST_F(TransferModelTest, TheNearbyShareIsOfferedOnlyWhenItCanSend)
{
    TransferModel model(m_fakes.services(), &loopback);
    EXPECT_FALSE(model.canSendNearby());
    EXPECT_TRUE(model.nearbyText().isEmpty()); // not asked yet
    EXPECT_EQ(model.nearbyButtonText(), QStringLiteral("Envoyer avec KDE Connect"));

    const auto ask = [&model] {
        QSignalSpy changed(&model, &TransferModel::nearbyChanged);
        model.refreshNearby();
        return QTest::qWaitFor([&] { return !model.nearbyText().isEmpty() && changed.count() >= 2; }, 5000);
    };
    m_fakes.nearbyShare.state = {NearbyShare::Availability::Kind::NotInstalled, {}};
    ASSERT_TRUE(ask());
    EXPECT_TRUE(model.nearbyText().startsWith(QStringLiteral("KDE Connect n'est pas installé")));
    EXPECT_FALSE(model.canSendNearby());

    m_fakes.nearbyShare.state = {
        NearbyShare::Availability::Kind::Ready,
        {{QStringLiteral("id1"), QStringLiteral("Pixel")}, {QStringLiteral("id2"), QStringLiteral("iPhone de Léa")}}};
    ASSERT_TRUE(ask());
    EXPECT_EQ(model.nearbyDevices(), (QStringList{QStringLiteral("Pixel"), QStringLiteral("iPhone de Léa")}));
    EXPECT_FALSE(model.canSendNearby()); // nothing chosen yet
    model.setItems({m_video, m_folder});
    ASSERT_TRUE(model.canSendNearby());

    // The second phone gets the file, and the folder as its archive, which outlives the answer.
    model.sendNearby(1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !m_fakes.nearbyShare.sent.isEmpty() && model.canSendNearby(); }, 20'000));
    const auto& [paths, device] = m_fakes.nearbyShare.sent.constFirst();
    EXPECT_EQ(device, QStringLiteral("id2"));
    ASSERT_EQ(paths.size(), 2);
    EXPECT_EQ(paths[0], m_video);
    EXPECT_EQ(QFileInfo(paths[1]).fileName(), QStringLiteral("Vacances.zip"));
    EXPECT_TRUE(QFileInfo::exists(paths[1]));
    EXPECT_EQ(model.status(),
              QStringLiteral("Envoyé à iPhone de Léa avec KDE Connect : suis l'envoi dans ses notifications."));

    // The phone gone meanwhile: said, and asked again.
    m_fakes.nearbyShare.answer = NearbyShare::Outcome::NotAvailable;
    m_fakes.nearbyShare.state = {NearbyShare::Availability::Kind::NoDevice, {}};
    model.sendNearby(0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.nearbyDevices().isEmpty(); }, 20'000));
    EXPECT_FALSE(model.canSendNearby());
    EXPECT_TRUE(model.nearbyText().startsWith(QStringLiteral("Aucun téléphone associé")));
}
