#pragma once

#include "ground/SystemError.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <atomic>
#include <memory>

namespace nuvrel {

/// A Photos library could not be read; the message says why and what to do.
class PhotosLibraryError final : public LocalizedError
{
public:
    enum class Kind {
        NotALibrary, ///< no database/Photos.sqlite in the package
        Unreadable,  ///< the database cannot be copied or opened
        Unsupported, ///< a generation of Photos whose layout we do not read
    };
    PhotosLibraryError(Kind kind, QString detail = {})
        : m_kind(kind)
        , m_detail(std::move(detail))
    {}
    Kind kind() const { return m_kind; }
    QString message() const override;
    const char* what() const noexcept override { return "cannot read the Photos library"; }

private:
    Kind m_kind;
    QString m_detail;
};

/// PhotoKit's numbering of an asset's resources, as the record of saved files keys them.
enum class ResourceType {
    Photo = 1,
    Video = 2,
    AlternatePhoto = 4,
    FullSizePhoto = 5, ///< the edited photo
    FullSizeVideo = 6, ///< the edited video
    PairedVideo = 9,   ///< the moving part of a Live Photo
};

/// One file of an asset, where the package keeps it.
struct LibraryResource
{
    ResourceType type = ResourceType::Photo;
    QString path;        ///< absolute, inside the package; the file may be missing (kept in iCloud only)
    QString displayName; ///< the name it is saved under, before a free name is found
};

/// One photo or video of the library.
struct LibraryAsset
{
    QString uuid;
    QDateTime created; ///< invalid when the database has none
    QList<LibraryResource> resources;

    /// PhotoKit's identifier of the asset: "UUID/L0/001".
    QString localIdentifier() const { return uuid + QStringLiteral("/L0/001"); }
    /// The record's key of one of its resources: the identifier, "|", the type's number.
    QString key(const LibraryResource& resource) const;
};

/// A Photos library package ("Photos Library.photoslibrary", from Photos 5 on: macOS 10.15 and later),
/// read from a private copy of its database. Nothing in the package is ever written.
///
/// The layout relied on: the database is "database/Photos.sqlite"; its generation is the
/// "PLModelVersion" of the property list in Z_METADATA (13000 and above for Photos 5 and later); the
/// assets are in ZASSET (ZGENERICASSET in the first generations), with ZUUID, ZDIRECTORY, ZFILENAME,
/// ZDATECREATED (seconds since 2001), ZKIND (0 photo, 1 video), ZKINDSUBTYPE (2 Live Photo),
/// ZHASADJUSTMENTS and ZTRASHEDSTATE; the original file names are in ZADDITIONALASSETATTRIBUTES. An
/// original is "originals/<ZDIRECTORY>/<ZFILENAME>", a Live Photo's video "originals/<D>/<UUID>_3.mov",
/// an edited photo "resources/renders/<D>/<UUID>_1_201_a.jpeg" (or .heic), an edited video
/// "resources/renders/<D>/<UUID>_2_0_a.mov", where <D> is the first character of the UUID.
class PhotosLibrary final
{
public:
    /// Whether `path` looks like a library package: a folder with database/Photos.sqlite.
    static bool isLibrary(const QString& path);

    /// Copies the database and reads every asset not in the trash, oldest first (undated first).
    /// Throws PhotosLibraryError. Blocks: call it off the GUI thread.
    static QList<LibraryAsset> readAssets(const QString& package, const std::atomic<bool>* cancel = nullptr);

    /// The generations read: Photos 5 (13000) up to this model version, excluded.
    static constexpr qint64 firstModelVersion = 13000;
    static constexpr qint64 endModelVersion = 20000;
};

} // namespace nuvrel
