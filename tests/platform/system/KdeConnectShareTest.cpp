// KDE Connect through its command, with a recorded system: which phones it offers (its output read as
// hostile text), and each file shared by its absolute path to the phone chosen.

#include "platform/system/KdeConnectShare.h"
#include "RecordingLauncher.h"

#include <QDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using nuvrel::test::RecordingLauncher;

namespace {

const QString cli = QStringLiteral("/usr/bin/kdeconnect-cli");
const QString listing = cli + QStringLiteral(" -a --id-name-only");

} // namespace

TEST(KdeConnectShare, OffersOnlyReachablePairedPhones)
{
    RecordingLauncher none;
    EXPECT_EQ(KdeConnectShare(none).availability().kind, NearbyShare::Availability::Kind::NotInstalled);

    RecordingLauncher installed;
    installed.programs[QStringLiteral("kdeconnect-cli")] = cli;
    // The daemon not running: the command fails; running without a phone: it prints nothing.
    EXPECT_EQ(KdeConnectShare(installed).availability().kind, NearbyShare::Availability::Kind::NoDevice);
    installed.outputs[listing] = QString();
    EXPECT_EQ(KdeConnectShare(installed).availability().kind, NearbyShare::Availability::Kind::NoDevice);

    // Names with spaces; a line that is no device (a warning, an option-like id) is not offered.
    installed.outputs[listing] = QStringLiteral("1f2e3d4c_5b6a_7980_a1b2_c3d4e5f60718 iPhone de Léa\n"
                                                "kdeconnect.core: warning\n"
                                                "--share oops\n"
                                                "\n"
                                                "a1b2c3d4e5f60718\n");
    const NearbyShare::Availability ready = KdeConnectShare(installed).availability();
    EXPECT_EQ(ready.kind, NearbyShare::Availability::Kind::Ready);
    ASSERT_EQ(ready.devices.size(), 2);
    EXPECT_EQ(ready.devices[0].id, QStringLiteral("1f2e3d4c_5b6a_7980_a1b2_c3d4e5f60718"));
    EXPECT_EQ(ready.devices[0].name, QStringLiteral("iPhone de Léa"));
    EXPECT_EQ(ready.devices[1].name, QStringLiteral("a1b2c3d4e5f60718")); // no name: its id
}

TEST(KdeConnectShare, SharesEachFileByItsAbsolutePathAndSaysWhenItIsRefused)
{
    RecordingLauncher launcher;
    launcher.programs[QStringLiteral("kdeconnect-cli")] = cli;
    const QString relative = QStringLiteral("-vidéo.mov"); // would read as an option if passed as it is
    const QString absolute = QDir::current().absoluteFilePath(relative);
    const QString id = QStringLiteral("a1b2c3d4e5f60718");
    const auto shareLine = [&](const QString& path) {
        return (QStringList{cli, QStringLiteral("--share"), path, QStringLiteral("-d"), id}).join(u' ');
    };
    launcher.outputs[shareLine(absolute)] = QString();
    launcher.outputs[shareLine(QStringLiteral("/tmp/b.pdf"))] = QString();
    KdeConnectShare share(launcher);
    EXPECT_EQ(share.send({relative, QStringLiteral("/tmp/b.pdf")}, id), NearbyShare::Outcome::Sent);
    EXPECT_EQ(share.send({QStringLiteral("/tmp/unknown.pdf")}, id), NearbyShare::Outcome::Failed);
    EXPECT_EQ(share.send({QStringLiteral("/tmp/b.pdf")}, QString()), NearbyShare::Outcome::NotAvailable);

    RecordingLauncher missing;
    EXPECT_EQ(KdeConnectShare(missing).send({QStringLiteral("/tmp/b.pdf")}, id), NearbyShare::Outcome::NotAvailable);
}
