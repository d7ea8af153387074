#include "support/SampleBackup.h"

#include "support/BackupFixture.h"
#include "support/FileRecordBlob.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>

#include <openssl/evp.h>
#include <sqlite3.h>

namespace nuvrel::test {

namespace {

constexpr quint32 manifestKeyClass = 4;

// AES-256-CBC with PKCS#7 padding and a zero IV, as the phone encrypts its files and index.
QByteArray encryptPadded(const QByteArray& key, const QByteArray& plain)
{
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    const unsigned char iv[16] = {};
    QByteArray out(plain.size() + 16, Qt::Uninitialized);
    int written = 0;
    int tail = 0;
    const bool ok = EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr,
                                       reinterpret_cast<const unsigned char*>(key.constData()), iv) == 1 &&
                    EVP_EncryptUpdate(context, reinterpret_cast<unsigned char*>(out.data()), &written,
                                      reinterpret_cast<const unsigned char*>(plain.constData()),
                                      static_cast<int>(plain.size())) == 1 &&
                    EVP_EncryptFinal_ex(context, reinterpret_cast<unsigned char*>(out.data()) + written, &tail) == 1;
    EVP_CIPHER_CTX_free(context);
    if (!ok)
        qFatal("encryptPadded failed");
    out.truncate(written + tail);
    return out;
}

class Database
{
public:
    explicit Database(const QString& path)
    {
        if (sqlite3_open(path.toUtf8().constData(), &m_db) != SQLITE_OK)
            qFatal("cannot create %s", qPrintable(path));
        exec("CREATE TABLE Files (fileID TEXT PRIMARY KEY, domain TEXT, relativePath TEXT, flags INTEGER, file BLOB);"
             "CREATE INDEX FilesDomainIdx ON Files(domain);"
             "CREATE INDEX FilesRelativePathIdx ON Files(relativePath);"
             "CREATE INDEX FilesFlagsIdx ON Files(flags);"
             "CREATE TABLE Properties (key TEXT PRIMARY KEY, value BLOB);"
             "BEGIN;");
        sqlite3_prepare_v2(m_db, "INSERT INTO Files VALUES (?, ?, ?, ?, ?)", -1, &m_insert, nullptr);
    }
    ~Database()
    {
        exec("COMMIT;");
        sqlite3_finalize(m_insert);
        sqlite3_close(m_db);
    }
    void insert(const QString& fileID, const QString& domain, const QString& path, int flags, const QByteArray& blob)
    {
        const QByteArray id = fileID.toUtf8(), d = domain.toUtf8(), p = path.toUtf8();
        sqlite3_bind_text(m_insert, 1, id.constData(), static_cast<int>(id.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(m_insert, 2, d.constData(), static_cast<int>(d.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(m_insert, 3, p.constData(), static_cast<int>(p.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int(m_insert, 4, flags);
        sqlite3_bind_blob(m_insert, 5, blob.constData(), static_cast<int>(blob.size()), SQLITE_TRANSIENT);
        if (sqlite3_step(m_insert) != SQLITE_DONE)
            qFatal("insert failed: %s", sqlite3_errmsg(m_db));
        sqlite3_reset(m_insert);
    }

private:
    void exec(const char* sql)
    {
        if (sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
            qFatal("sqlite: %s", sqlite3_errmsg(m_db));
    }
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
};

QByteArray mbdbString(const std::optional<QByteArray>& value)
{
    char length[2];
    if (!value) {
        qToBigEndian<quint16>(0xFFFF, length);
        return QByteArray(length, 2);
    }
    qToBigEndian<quint16>(static_cast<quint16>(value->size()), length);
    return QByteArray(length, 2) + *value;
}

template <typename T>
QByteArray bigEndian(T value)
{
    char bytes[sizeof(T)];
    qToBigEndian(value, bytes);
    return QByteArray(bytes, sizeof(T));
}

QByteArray mbdbRecord(const QString& domain, const QString& path, quint16 mode, const std::optional<QByteArray>& key,
                      qint64 size, quint32 mtime, quint8 protectionClass)
{
    QByteArray record = mbdbString(domain.toUtf8()) + mbdbString(path.toUtf8()) + mbdbString(std::nullopt) +
                        mbdbString(QByteArray(20, '\x11')) + mbdbString(key);
    record += bigEndian<quint16>(mode) + bigEndian<quint64>(12345) + bigEndian<quint32>(501) + bigEndian<quint32>(501);
    record += bigEndian<quint32>(mtime) + bigEndian<quint32>(mtime) + bigEndian<quint32>(mtime);
    record += bigEndian<quint64>(static_cast<quint64>(size)) + bigEndian<quint8>(protectionClass);
    record += bigEndian<quint8>(1) + mbdbString(QByteArray("com.apple.assetsd.UUID")) + mbdbString(QByteArray("x"));
    return record;
}

} // namespace

QString SampleBackup::fileID(const QString& domain, const QString& path)
{
    return QString::fromLatin1(
        QCryptographicHash::hash((domain + u'-' + path).toUtf8(), QCryptographicHash::Sha1).toHex());
}

QString SampleBackup::write(const QString& root) const
{
    const QString folder = QDir(root).filePath(id);
    QDir().mkpath(folder);
    const bool encrypted = password.has_value();

    // Class keys 1 to 11 as a phone has them; class 2 is asymmetric, its wrapped key 0x48 bytes.
    QList<KeyBagClass> classes;
    QMap<quint32, QByteArray> classKeys;
    for (quint32 c = 1; c <= 11; ++c) {
        const QByteArray key = pseudoRandomBytes(c == 2 ? 64 : 32, 100 + c);
        classKeys.insert(c, key);
        classes.append({c, key, 3, c == 2});
    }

    QVariantMap manifest{
        {QStringLiteral("Version"), QStringLiteral("10.0")},
        {QStringLiteral("IsEncrypted"), encrypted},
        {QStringLiteral("WasPasscodeSet"), true},
        {QStringLiteral("Lockdown"), QVariantMap{{QStringLiteral("DeviceName"), deviceName},
                                                 {QStringLiteral("ProductVersion"), productVersion},
                                                 {QStringLiteral("ProductType"), productType}}},
    };
    if (lastBackup.isValid())
        manifest.insert(QStringLiteral("Date"), lastBackup);
    const QByteArray indexKey = pseudoRandomBytes(32, 999);
    if (encrypted) {
        manifest.insert(QStringLiteral("BackupKeyBag"), writeKeyBag(*password, classes, keyBag));
        if (layout == Layout::Current)
            manifest.insert(QStringLiteral("ManifestKey"),
                            wrappedKeyValue(manifestKeyClass, classKeys.value(manifestKeyClass), indexKey));
    }
    writeFile(folder + QStringLiteral("/Info.plist"),
              writePlist(infoPlist(deviceName, productType, productVersion,
                                   lastBackup.isValid() ? std::optional(lastBackup) : std::nullopt),
                         PlistFormat::Binary));
    writeFile(folder + QStringLiteral("/Manifest.plist"), writePlist(manifest, PlistFormat::Binary));
    writeFile(folder + QStringLiteral("/Status.plist"),
              writePlist(QVariantMap{{QStringLiteral("IsFullBackup"), false},
                                     {QStringLiteral("SnapshotState"), QStringLiteral("finished")},
                                     {QStringLiteral("Version"), QStringLiteral("3.3")}},
                         PlistFormat::Binary));

    // Each file: its stored copy (encrypted with its own key when the backup is) and its record.
    struct Stored
    {
        const SampleFile* file;
        QString fileID;
        std::optional<QByteArray> encKey;
    };
    QList<Stored> stored;
    quint32 seed = 5000;
    for (const SampleFile& file : files) {
        Stored item{&file, fileID(file.domain, file.path), std::nullopt};
        QByteArray contents = writeStoredCopies ? file.contents : QByteArray();
        if (encrypted) {
            const QByteArray key = pseudoRandomBytes(32, ++seed);
            item.encKey = wrappedKeyValue(file.protectionClass, classKeys.value(file.protectionClass), key);
            contents = encryptPadded(key, contents);
        }
        const QString relative = layout == Layout::Current ? item.fileID.left(2) + u'/' + item.fileID : item.fileID;
        if (writeStoredCopies)
            writeFile(QDir(folder).filePath(relative), contents);
        stored.append(item);
    }

    if (layout == Layout::Oldest) {
        QByteArray mbdb("mbdb\x05\x00", 6);
        if (withFoldersAndLinks) {
            mbdb += mbdbRecord(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM"), 0x41ED, std::nullopt,
                               0, 1'600'000'000, 0);
            mbdb += mbdbRecord(QStringLiteral("HomeDomain"), QStringLiteral("Library/link"), 0xA1ED, std::nullopt, 0,
                               1'600'000'000, 0);
        }
        for (const Stored& item : stored)
            mbdb += mbdbRecord(item.file->domain, item.file->path, 0x81A4, item.encKey, item.file->contents.size(),
                               static_cast<quint32>(item.file->lastModified),
                               static_cast<quint8>(item.file->protectionClass));
        writeFile(folder + QStringLiteral("/Manifest.mbdb"), mbdb);
        return folder;
    }

    QTemporaryDir scratch;
    const QString plainIndex = scratch.filePath(QStringLiteral("Manifest.db"));
    {
        Database database(plainIndex);
        if (withFoldersAndLinks) {
            database.insert(fileID(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM")),
                            QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM"), 2, {});
            database.insert(fileID(QStringLiteral("HomeDomain"), QStringLiteral("Library/link")),
                            QStringLiteral("HomeDomain"), QStringLiteral("Library/link"), 4, {});
        }
        for (const Stored& item : stored) {
            FileRecord record;
            record.relativePath = item.file->path;
            record.size = item.file->contents.size();
            record.protectionClass = item.file->protectionClass;
            record.lastModified = item.file->lastModified ? std::optional(item.file->lastModified) : std::nullopt;
            record.encryptionKey = item.encKey;
            database.insert(item.fileID, item.file->domain, item.file->path, 1, makeFileRecordBlob(record));
        }
    }
    QFile plain(plainIndex);
    if (!plain.open(QIODevice::ReadOnly))
        qFatal("cannot read the index just written");
    const QByteArray index = plain.readAll();
    writeFile(folder + QStringLiteral("/Manifest.db"), encrypted ? encryptPadded(indexKey, index) : index);
    return folder;
}

QList<SampleFile> cameraRollPhotos(int count)
{
    QList<SampleFile> photos;
    for (int i = 1; i <= count; ++i) {
        // Little landscapes: a sky, a sun and hills, each in its own colours; every fifth one upright.
        const bool portrait = i % 5 == 0;
        QImage image(portrait ? 240 : 320, portrait ? 320 : 240, QImage::Format_RGB32);
        const int hue = (i * 47) % 360;
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        QLinearGradient sky(0, 0, 0, image.height());
        sky.setColorAt(0, QColor::fromHsv(hue, 120, 250));
        sky.setColorAt(1, QColor::fromHsv((hue + 30) % 360, 60, 255));
        painter.fillRect(image.rect(), sky);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor::fromHsv((hue + 180) % 360, 90, 255));
        painter.drawEllipse(QPoint(image.width() * (20 + i % 60) / 100, image.height() / 4), 22 + i % 12, 22 + i % 12);
        painter.setBrush(QColor::fromHsv((hue + 90) % 360, 150, 170));
        painter.drawEllipse(QRect(-image.width() / 3, image.height() * 3 / 5, image.width(), image.height()));
        painter.setBrush(QColor::fromHsv((hue + 110) % 360, 170, 120));
        painter.drawEllipse(QRect(image.width() / 3, image.height() * 2 / 3, image.width(), image.height()));
        painter.end();
        QByteArray jpeg;
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPG", 85);
        SampleFile file;
        file.domain = QStringLiteral("CameraRollDomain");
        file.path = QStringLiteral("Media/DCIM/100APPLE/IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0'));
        file.contents = jpeg;
        file.lastModified = 1'700'000'000 + i * 3600;
        file.protectionClass = 3;
        photos.append(file);
    }
    return photos;
}

} // namespace nuvrel::test

namespace nuvrel::test {

namespace {

QByteArray runTool(const QString& program, const QStringList& arguments, const QString& output, const char* package)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120'000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        qFatal("%s failed; is the %s package installed? (tools/install-deps.sh)", qPrintable(program), package);
    QFile file(output);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s wrote nothing", qPrintable(program));
    return file.readAll();
}

} // namespace

QList<SampleFile> cameraRollHeicAndMov()
{
    // Made once per process: the tools take a moment.
    static const QList<SampleFile> media = [] {
        QTemporaryDir scratch;
        QImage image(480, 360, QImage::Format_RGB32);
        image.fill(QColor(70, 130, 180));
        QPainter painter(&image);
        painter.setBrush(QColor(255, 200, 0));
        painter.drawEllipse(QPoint(240, 180), 100, 100);
        painter.end();
        const QString png = scratch.filePath(QStringLiteral("photo.png"));
        image.save(png);
        const QString heic = scratch.filePath(QStringLiteral("photo.heic"));
        const QString mov = scratch.filePath(QStringLiteral("video.mov"));
        SampleFile photo{QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0100.HEIC"),
                         runTool(QStringLiteral("heif-enc"),
                                 {QStringLiteral("-q"), QStringLiteral("60"), QStringLiteral("-o"), heic, png}, heic,
                                 "libheif-examples"),
                         1'700'100'000};
        SampleFile video{QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0101.MOV"),
                         runTool(QStringLiteral("ffmpeg"),
                                 {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                                  QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("testsrc=duration=2:size=320x240:rate=15"), QStringLiteral("-c:v"),
                                  QStringLiteral("libx264"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"),
                                  QStringLiteral("-movflags"), QStringLiteral("+faststart"), QStringLiteral("-y"), mov},
                                 mov, "ffmpeg"),
                         1'700'100'060};
        return QList<SampleFile>{photo, video};
    }();
    return media;
}

QList<SampleFile> hostileIndexFiles()
{
    const auto file = [](const QString& domain, const QString& path, const char* contents) {
        return SampleFile{domain, path, QByteArray(contents)};
    };
    return {
        file(QStringLiteral("../../../somewhere"), QStringLiteral("domain-escape.txt"), "1"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("../../path-escape.txt"), "2"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("/etc/absolute.txt"), "3"),
        file(QStringLiteral("/tmp"), QStringLiteral("absolute-domain.txt"), "4"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("ctl\u0007bell\nline.txt"), "5"),
        file(QStringLiteral("HomeDomain"), QString(300, QChar(0xE9)) + QStringLiteral(".jpg"), "6"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("Case.txt"), "7"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("CASE.txt"), "8"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("caf\u00e9.txt"), "9"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("cafe\u0301.txt"), "10"),
        // An escape sequence in a name must not reach a terminal through a report.
        file(QStringLiteral("HomeDomain"), QStringLiteral("clash\u001b[2J"), "file first"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("clash\u001b[2J/inside.txt"), "needs a folder"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("other/inside.txt"), "folder first"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("other"), "needs a file"),
        file(QStringLiteral("."), QStringLiteral("../.."), "cleans to nothing"),
        file(QStringLiteral("HomeDomain"), QStringLiteral("Library/linked/through.txt"), "behind a link"),
    };
}

} // namespace nuvrel::test
