#pragma once

#include "platform/PhoneCamera.h"

namespace nuvrel {

/// Photos and videos read from a folder: a phone mounted by the file manager or ifuse, a camera's
/// card, any folder with a DCIM tree. The folder's "DCIM" is read when it has one; otherwise the
/// folder itself. Links are never followed, hidden entries and bundles never entered.
class FolderSource final : public CameraSource
{
public:
    /// `deviceName` keys the copy history: see nameForFolder().
    FolderSource(const QString& folder, QString deviceName);

    /// The name a folder source goes by in the copy history, so that the same card imported twice is
    /// known again: the phone's name when the folder is a mounted phone, else the label of the
    /// removable volume it lies on, else the folder's own name (its parent's when it is a "DCIM").
    static QString nameForFolder(const QString& folder, const QString& mountedPhoneName,
                                 const QString& removableVolumeLabel);

    /// Whether `mountPoint` is where removable disks and cards are mounted (/media, /run/media, /mnt,
    /// /Volumes): its label names a card better than any folder on it.
    static bool isRemovableMountPoint(const QString& mountPoint);

    /// Whether a file of this name is a photo or a video the import takes.
    static bool isMediaName(const QString& name);

    Kind kind() const override { return Kind::Folder; }
    QString deviceName() const override { return m_deviceName; }
    /// Dates: what the photo or video records (Exif, the movie header), else the modification time:
    /// the creation time of a copied folder is the day of the copy.
    QList<CameraFile> mediaFiles(const std::atomic<bool>* cancel) override;
    std::unique_ptr<CameraFileReader> open(const CameraFile& file, QString& error) override;
    bool isPresent() override;

    /// The folder that is read: the chosen one, or its DCIM.
    QString root() const { return m_root; }

private:
    QString m_root;
    QString m_deviceName;
};

} // namespace nuvrel
