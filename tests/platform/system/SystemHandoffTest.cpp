#include "platform/system/SystemHandoff.h"
#include "RecordingLauncher.h"
#include "platform/system/Launcher.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using nuvrel::test::RecordingLauncher;

namespace {

using Kind = Handoff::Outcome::Kind;
constexpr auto onLinux = SystemHandoff::Desktop::Linux;

} // namespace

TEST(SystemHandoff, TelegramGetsTheFilesThroughItsOwnChatChooser)
{
    QTemporaryDir folder;
    const QString photo = folder.filePath(QStringLiteral("IMG_0001-leger.jpg"));
    QFile file(photo);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("jpeg");
    file.close();
    const QStringList files{photo, folder.filePath(QStringLiteral("scan-leger.pdf"))};
    const QString sandbox = folder.filePath(QStringLiteral("Downloads/Nuvrel"));

    // The native program: straight, with -sendpath.
    RecordingLauncher native;
    native.programs[QStringLiteral("telegram-desktop")] = QStringLiteral("/usr/bin/telegram-desktop");
    EXPECT_EQ(SystemHandoff(native, sandbox, onLinux).send(Handoff::Channel::Telegram, files).kind, Kind::ShareWindow);
    ASSERT_EQ(native.started.size(), 1);
    EXPECT_EQ(native.started[0],
              (QStringList{QStringLiteral("/usr/bin/telegram-desktop"), QStringLiteral("-sendpath")} + files));

    // The Flatpak, which reads the downloads folder only: given copies there.
    RecordingLauncher flatpak;
    flatpak.programs[QStringLiteral("flatpak")] = QStringLiteral("/usr/bin/flatpak");
    flatpak.outputs[QStringLiteral("/usr/bin/flatpak info org.telegram.desktop")] = QStringLiteral("Ref: app/…");
    const Handoff::Outcome viaFolder =
        SystemHandoff(flatpak, sandbox, onLinux).send(Handoff::Channel::Telegram, {photo});
    EXPECT_EQ(viaFolder.kind, Kind::SharedThroughFolder);
    EXPECT_EQ(viaFolder.folder, sandbox);
    ASSERT_EQ(flatpak.started.size(), 1);
    const QString copy = QDir(sandbox).filePath(QStringLiteral("IMG_0001-leger.jpg"));
    EXPECT_EQ(flatpak.started[0],
              (QStringList{QStringLiteral("/usr/bin/flatpak"), QStringLiteral("run"),
                           QStringLiteral("org.telegram.desktop"), QStringLiteral("-sendpath"), copy}));
    EXPECT_TRUE(QFile::exists(copy));
    // A second time: a copy of its own, never over the first.
    SystemHandoff(flatpak, sandbox, onLinux).send(Handoff::Channel::Telegram, {photo});
    EXPECT_EQ(flatpak.started[1].last(), QDir(sandbox).filePath(QStringLiteral("IMG_0001-leger-2.jpg")));

    // The Snap, found outside the PATH.
    RecordingLauncher snap;
    snap.executables.append(QStringLiteral("/snap/bin/telegram-desktop"));
    EXPECT_EQ(SystemHandoff(snap, sandbox, onLinux).send(Handoff::Channel::Telegram, {photo}).kind,
              Kind::SharedThroughFolder);
    EXPECT_EQ(snap.started.value(0).value(0), QStringLiteral("/snap/bin/telegram-desktop"));

    // None of them; one that will not start.
    RecordingLauncher none;
    EXPECT_EQ(SystemHandoff(none, sandbox, onLinux).send(Handoff::Channel::Telegram, files).kind, Kind::NotAvailable);
    EXPECT_TRUE(none.started.isEmpty());
    native.refuseToStart = true;
    EXPECT_EQ(SystemHandoff(native, sandbox, onLinux).send(Handoff::Channel::Telegram, files).kind, Kind::Failed);
}

TEST(SystemHandoff, WhatsAppOpensAnInstalledApplicationOrItsWebVersion)
{
    const QStringList files{QStringLiteral("/tmp/a-leger.jpg")};
    RecordingLauncher desktop;
    desktop.entries = {{QStringLiteral("org.gnome.Nautilus.desktop"), QStringLiteral("Fichiers"),
                        QStringLiteral("nautilus --new-window %U")},
                       {QStringLiteral("com.github.eneshecan.WhatsAppForLinux.desktop"),
                        QStringLiteral("WhatsApp for Linux"),
                        QStringLiteral("whatsapp-for-linux %U --quiet \"a b\" 100%%")}};
    EXPECT_EQ(SystemHandoff(desktop, {}, onLinux).send(Handoff::Channel::WhatsApp, files).kind, Kind::AppOpened);
    ASSERT_EQ(desktop.started.size(), 1);
    // The field code goes, quoting and "%%" are understood; the files are never passed to it.
    EXPECT_EQ(desktop.started[0], (QStringList{QStringLiteral("whatsapp-for-linux"), QStringLiteral("--quiet"),
                                               QStringLiteral("a b"), QStringLiteral("100%")}));
    EXPECT_TRUE(desktop.urls.isEmpty());

    RecordingLauncher browserOnly;
    EXPECT_EQ(SystemHandoff(browserOnly, {}, onLinux).send(Handoff::Channel::WhatsApp, files).kind, Kind::WebOpened);
    EXPECT_EQ(browserOnly.urls, QList<QUrl>{QUrl(QStringLiteral("https://web.whatsapp.com/"))});
    browserOnly.refuseToStart = true;
    EXPECT_EQ(SystemHandoff(browserOnly, {}, onLinux).send(Handoff::Channel::WhatsApp, files).kind, Kind::Failed);
}

TEST(SystemHandoff, MailOnlyWhereAMailApplicationTakesMailtoLinks)
{
    const QStringList files{QStringLiteral("/tmp/a-leger.jpg"), QStringLiteral("/tmp/b c.pdf")};
    RecordingLauncher mail;
    mail.programs[QStringLiteral("xdg-email")] = QStringLiteral("/usr/bin/xdg-email");
    mail.programs[QStringLiteral("xdg-mime")] = QStringLiteral("/usr/bin/xdg-mime");
    // No handler: xdg-email would open a bare link and lose the attachments.
    EXPECT_EQ(SystemHandoff(mail, {}, onLinux).send(Handoff::Channel::Mail, files).kind, Kind::NotAvailable);
    mail.outputs[QStringLiteral("/usr/bin/xdg-mime query default x-scheme-handler/mailto")] = QStringLiteral("\n");
    EXPECT_EQ(SystemHandoff(mail, {}, onLinux).send(Handoff::Channel::Mail, files).kind, Kind::NotAvailable);
    EXPECT_TRUE(mail.started.isEmpty());

    mail.outputs[QStringLiteral("/usr/bin/xdg-mime query default x-scheme-handler/mailto")] =
        QStringLiteral("thunderbird.desktop\n");
    EXPECT_EQ(SystemHandoff(mail, {}, onLinux).send(Handoff::Channel::Mail, files).kind, Kind::ShareWindow);
    ASSERT_EQ(mail.started.size(), 1);
    EXPECT_EQ(mail.started[0], (QStringList{QStringLiteral("/usr/bin/xdg-email"), QStringLiteral("--attach"), files[0],
                                            QStringLiteral("--attach"), files[1]}));

    RecordingLauncher nothing;
    EXPECT_EQ(SystemHandoff(nothing, {}, onLinux).send(Handoff::Channel::Mail, files).kind, Kind::NotAvailable);
    EXPECT_EQ(SystemHandoff(nothing, {}, onLinux).send(Handoff::Channel::Messages, files).kind, Kind::NotAvailable);
}

TEST(SystemHandoff, OnMacOSTheApplicationsAreOpenedByTheirIdentifiers)
{
    const QStringList files{QStringLiteral("/Users/ana/Pictures/Nuvrel-Alleges/IMG_0001-leger.jpg")};
    const auto mac = SystemHandoff::Desktop::MacOS;
    RecordingLauncher installed;
    installed.outputs[QStringLiteral("/usr/bin/open -b desktop.WhatsApp")] = QString();
    installed.outputs[QStringLiteral("/usr/bin/open -a Mail ") + files[0]] = QString();
    // The first identifier is tried first; the one that is there opens.
    EXPECT_EQ(SystemHandoff(installed, {}, mac).send(Handoff::Channel::WhatsApp, files).kind, Kind::AppOpened);
    EXPECT_EQ(SystemHandoff(installed, {}, mac).send(Handoff::Channel::Telegram, files).kind, Kind::NotAvailable);
    EXPECT_EQ(SystemHandoff(installed, {}, mac).send(Handoff::Channel::Mail, files).kind, Kind::ShareWindow);
    EXPECT_EQ(SystemHandoff(installed, {}, mac).send(Handoff::Channel::Messages, files).kind, Kind::NotAvailable);
    // Nothing of Linux's is looked for there.
    EXPECT_TRUE(installed.started.isEmpty());
    EXPECT_TRUE(installed.urls.isEmpty());
}

TEST(SystemHandoff, DesktopEntriesAreReadWarily)
{
    QTemporaryDir folder;
    const auto entry = [&folder](const QString& name, const QByteArray& text) {
        QFile file(folder.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
        return folder.filePath(name);
    };
    const std::optional<Launcher::DesktopEntry> app = ProcessLauncher::readDesktopEntry(
        entry(QStringLiteral("zapzap.desktop"),
              "[Desktop Entry]\nType=Application\nName=ZapZap - WhatsApp Messenger\nExec=zapzap %u\n"
              "[Desktop Action New]\nName=Other\nExec=evil\n"));
    ASSERT_TRUE(app);
    EXPECT_EQ(app->name, QStringLiteral("ZapZap - WhatsApp Messenger"));
    EXPECT_EQ(app->exec, QStringLiteral("zapzap %u")); // the action's keys are not the entry's
    EXPECT_FALSE(ProcessLauncher::readDesktopEntry(
        entry(QStringLiteral("hidden.desktop"),
              "[Desktop Entry]\nType=Application\nName=WhatsApp\nExec=x\nNoDisplay=true\n")));
    EXPECT_FALSE(ProcessLauncher::readDesktopEntry(
        entry(QStringLiteral("link.desktop"), "[Desktop Entry]\nType=Link\nName=WhatsApp\nURL=https://x\n")));
    EXPECT_FALSE(ProcessLauncher::readDesktopEntry(entry(QStringLiteral("garbage.desktop"), QByteArray(5000, '\0'))));
    EXPECT_FALSE(ProcessLauncher::readDesktopEntry(folder.filePath(QStringLiteral("absent.desktop"))));
}

TEST(SystemHandoff, TheRealLauncherStartsTelegramFromThePath)
{
    // A "telegram-desktop" of the test's own on a PATH of its own, that writes down its arguments.
    QTemporaryDir folder;
    const QString bin = folder.filePath(QStringLiteral("bin"));
    QDir().mkpath(bin);
    const QString record = folder.filePath(QStringLiteral("arguments.txt"));
    QFile script(QDir(bin).filePath(QStringLiteral("telegram-desktop")));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > \"" + QFile::encodeName(record) +
                 "\"\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(bin));

    ProcessLauncher launcher;
    const QStringList files{folder.filePath(QStringLiteral("a b-leger.jpg")), folder.filePath(QStringLiteral("c.pdf"))};
    const Handoff::Outcome outcome = SystemHandoff(launcher, {}, onLinux).send(Handoff::Channel::Telegram, files);
    qputenv("PATH", path);
    EXPECT_EQ(outcome.kind, Kind::ShareWindow);
    ASSERT_TRUE(QTest::qWaitFor([&record] { return QFileInfo(record).size() > 0; }, 10'000));
    QFile written(record);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(written.readAll()), QStringLiteral("-sendpath\n") + files.join(u'\n') + u'\n');
}
