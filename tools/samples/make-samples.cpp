// Writes sample backup folders, shaped like the ones the phone's sync service writes, for the demo
// and for trying Nuvrel on a machine without an iPhone:   nuvrel-make-samples <folder>
// With --fuzz-seeds, writes seed inputs for the fuzzers instead (one folder per fuzzer); with
// --bench-data, the benchmarks' encrypted 1 GiB file (the real-shaped backup index and
// conversations come from bench/generators).

#include "support/BackupFixture.h"
#include "support/ChatFixtures.h"
#include "support/FileRecordBlob.h"
#include "support/KeyBagWriter.h"
#include "support/SampleBackup.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimeZone>

using namespace nuvrel::test;

namespace {
const QString demoPassword = QStringLiteral("demo-1234");
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    const bool seeds = arguments.removeAll(QStringLiteral("--fuzz-seeds")) > 0;
    const bool benchData = arguments.removeAll(QStringLiteral("--bench-data")) > 0;
    const bool chatExport = arguments.removeAll(QStringLiteral("--chat-export")) > 0;
    if (arguments.size() != 1) {
        err << "usage: nuvrel-make-samples [--fuzz-seeds | --bench-data] <folder>\n"
               "       nuvrel-make-samples --chat-export <file.txt>\n";
        return 2;
    }
    const QString root = arguments[0];
    if (chatExport) {
        writeFile(root, sampleWhatsAppExport().toUtf8());
        return 0;
    }
    if (!QDir().mkpath(root)) {
        err << "cannot create " << root << '\n';
        return 1;
    }
    if (benchData) {
        SampleBackup big;
        big.id = QStringLiteral("big-file");
        big.password = QStringLiteral("bench");
        big.files = {{QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0001.MOV"),
                      pseudoRandomBytes(qint64(1) << 30, 42)}};
        big.write(root);
        return 0;
    }
    if (seeds) {
        const QDir dir(root);
        for (int i = 0; i < 6; ++i) {
            FileRecord record;
            record.size = qint64(1) << (i * 7);
            record.keyAsNSData = i % 2 == 0;
            record.sizeByReference = i == 3;
            if (i != 5)
                record.encryptionKey = QByteArray(40, static_cast<char>('A' + i));
            writeFile(dir.filePath(QStringLiteral("bplist/record-%1").arg(i)), makeFileRecordBlob(record));
        }
        // Cheap derivations, so that the fuzzer reaches the unwrap.
        KeyBagOptions cheap;
        cheap.firstIterations = 1;
        cheap.iterations = 1;
        writeFile(dir.filePath(QStringLiteral("keybag/modern")),
                  writeKeyBag(QStringLiteral("password"), {{3, QByteArray(32, 'k')}, {2, QByteArray(64, 'a'), 3, true}},
                              cheap));
        cheap.modern = false;
        writeFile(
            dir.filePath(QStringLiteral("keybag/older")),
            writeKeyBag(QStringLiteral("password"), {{1, QByteArray(32, 'j')}, {5, QByteArray(32, 'x'), 1}}, cheap));
        writeFile(dir.filePath(QStringLiteral("attributedbody/short")), attributedBody(QStringLiteral("Salut ! 🙂")));
        writeFile(dir.filePath(QStringLiteral("attributedbody/long")), attributedBody(QString(200, u'é')));
        // The export target's first byte chooses how its file is cut into reads.
        writeFile(dir.filePath(QStringLiteral("whatsapp_export/iphone")), '\x05' + sampleWhatsAppExport().toUtf8());
        writeFile(dir.filePath(QStringLiteral("whatsapp_export/android")),
                  "\x03"
                  "31/12/2023, 21:05 - Bob: a: b\n1/2/24, 9:05 p.m. - Ann: hi\nsuite\n2019/01/30, 20:49 - Zoe: x\n");
        writeFile(dir.filePath(QStringLiteral("whatsapp_export/dates")),
                  "\x07"
                  "14/02/2024, 09:00 - A: x\r\n31/02/2024, 10:00 - B: y\n02/25/2024, 1:00 PM - B: z\n"
                  "[16/02/2024, 25:61:00] C: w\n");
        writeFile(dir.filePath(QStringLiteral("chat_exports/telegram")),
                  R"({"personal_information": {"user_id": 1}, "chats": {"list": [{"name": "A", "messages": [)"
                  R"({"id": 1, "type": "message", "date_unixtime": "1700000000", "from": "A", "from_id": "user1",)"
                  R"( "text": ["a ", {"type": "bold", "text": "b"}], "reply_to_message_id": 1, "photo": "p.jpg"},)"
                  R"({"id": 2, "type": "service", "date": "2024-01-01T10:00:00", "actor": "A",)"
                  R"( "action": "invite_members", "members": ["B", null]}]}]}})");
        writeFile(dir.filePath(QStringLiteral("chat_exports/pasted")),
                  "[12/03/2024 10:04] Ana : Bonjour\nsuite\nBruno: ok\n[05/01/2023, 12:34:56] C: x\n");
        // Byte 0x01 then n repeats the character before it: long runs from a short input.
        writeFile(dir.filePath(QStringLiteral("pdf_layout/runs")), "ligne un\nx\x01\xFF mots \xC3\xA9"
                                                                   "e\x01\x20 fin");
        QTemporaryDir scratch;
        SampleBackup oldest;
        oldest.layout = SampleBackup::Layout::Oldest;
        oldest.files = {
            {QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), QByteArray("x")},
            {QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0001.JPG"), QByteArray("y")}};
        const QString folder = oldest.write(scratch.path());
        QFile mbdb(folder + QStringLiteral("/Manifest.mbdb"));
        if (mbdb.open(QIODevice::ReadOnly))
            writeFile(dir.filePath(QStringLiteral("mbdb/oldest")), mbdb.readAll());
        return 0;
    }
    const auto utc = [](int y, int m, int d, int h, int min) {
        return QDateTime(QDate(y, m, d), QTime(h, min), QTimeZone::utc());
    };

    QList<SampleFile> files = cameraRollPhotos(36) + cameraRollHeicAndMov();
    files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/notes.txt"),
                  QByteArray("Liste de courses : pain, fromage, café.\n")});
    {
        QTemporaryDir scratch;
        const QString sms = scratch.filePath(QStringLiteral("sms.db"));
        writeSampleMessagesDatabase(sms);
        QFile database(sms);
        database.open(QIODevice::ReadOnly);
        files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), database.readAll()});
    }
    {
        QTemporaryDir scratch;
        const QString store = scratch.filePath(QStringLiteral("ChatStorage.sqlite"));
        writeSampleWhatsAppDatabase(store);
        QFile database(store);
        database.open(QIODevice::ReadOnly);
        files.append({QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"),
                      QStringLiteral("ChatStorage.sqlite"), database.readAll()});
    }

    SampleBackup camille;
    camille.id = QStringLiteral("00008110-001A2B3C4D5E801E");
    camille.lastBackup = utc(2026, 11, 20, 19, 42);
    camille.files = files;
    camille.write(root);

    // Encrypted with the phone's own derivation cost, so that unlocking takes as long as for real.
    SampleBackup louis;
    louis.id = QStringLiteral("00008030-000E1D2C3B4A5968");
    louis.deviceName = QStringLiteral("iPhone SE de Louis");
    louis.productType = QStringLiteral("iPhone12,8");
    louis.productVersion = QStringLiteral("16.7.8");
    louis.lastBackup = utc(2025, 6, 3, 8, 15);
    louis.password = demoPassword;
    louis.keyBag.firstIterations = 10'000'000;
    louis.keyBag.iterations = 10'000;
    louis.files = files.mid(4);
    louis.write(root);

    SampleBackup old;
    old.id = QStringLiteral("3f2a9c1e7b6d4a5f8e0c1b2a3d4e5f6a7b8c9d0e");
    old.deviceName = QStringLiteral("Ancien iPhone");
    old.productType = QStringLiteral("iPhone3,1");
    old.productVersion = QStringLiteral("7.1.2");
    old.lastBackup = QDateTime();
    old.layout = SampleBackup::Layout::Oldest;
    old.files = files.mid(0, 3);
    old.write(root);

    // What the scan must pass over: a hidden folder and a stray file.
    writeBackup(root, {QStringLiteral(".Trash-sample"), infoPlist(QStringLiteral("invisible")), std::nullopt});
    writeFile(QDir(root).filePath(QStringLiteral("README.txt")),
              "Sample iPhone backups written by nuvrel-make-samples.\n");
    QTextStream(stdout) << "Sample backups written to " << root << " (the encrypted one's password: " << demoPassword
                        << ")\n";
    return 0;
}
