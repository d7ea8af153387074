#pragma once

#include "support/KeyBagWriter.h"
#include "support/PlistWriter.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace nuvrel::test {

/// One file to put in a sample backup.
struct SampleFile
{
    QString domain = QStringLiteral("HomeDomain");
    QString path;
    QByteArray contents;
    qint64 lastModified = 1'700'000'000; ///< seconds since 1970; 0 leaves "LastModified" out of the record
    quint32 protectionClass = 3;
};

/// A backup folder as the phone's sync service writes it, in the current layout (Manifest.db and a
/// two-level store) or the oldest one (Manifest.mbdb and a flat store), plain or encrypted.
/// The encryption uses OpenSSL's own primitives (key wrap, PBKDF2, AES-CBC with padding), so that
/// the reader is checked against another implementation.
struct SampleBackup
{
    enum class Layout { Current, Oldest };

    QString id = QStringLiteral("00008110-000A1B2C3D4E5F60");
    QString deviceName = QStringLiteral("iPhone de Camille");
    QString productType = QStringLiteral("iPhone15,2");
    QString productVersion = QStringLiteral("17.5.1");
    QDateTime lastBackup = QDateTime::fromSecsSinceEpoch(1'763'650'000); ///< invalid: no date recorded
    Layout layout = Layout::Current;
    std::optional<QString> password; ///< encrypted when set
    KeyBagOptions keyBag;            ///< the derivation cost; kept low in tests
    QList<SampleFile> files;
    bool withFoldersAndLinks = true; ///< index rows for folders and links, which are not files
    bool writeStoredCopies = true;   ///< false: the index alone, for benchmarks of listing

    /// Writes the backup under `root`; returns its folder.
    QString write(const QString& root) const;

    /// The identifier of a file's stored copy: SHA-1 of "domain-path", in lowercase hexadecimal.
    static QString fileID(const QString& domain, const QString& path);
};

/// Camera-roll photos as real JPEG files, different from one another, named IMG_0001.JPG and on.
QList<SampleFile> cameraRollPhotos(int count);

/// An index a hostile or broken backup could hold: domains and paths that climb out ("../", absolute),
/// control characters, a name over 255 bytes, names equal but for case or Unicode normalisation, a
/// file and a folder of the same name in both orders, a path that cleans to nothing, and a file below
/// "HomeDomain/Library/linked" (a link a test may place in the destination).
QList<SampleFile> hostileIndexFiles();

/// A real HEIC photo and a real MOV video, as an iPhone records them (made by heif-enc and ffmpeg).
QList<SampleFile> cameraRollHeicAndMov();

} // namespace nuvrel::test
