#pragma once

#include "platform/PhoneCamera.h"

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace nuvrel {

/// The settings key of the folder photos are copied to, shared by the import and the library backup.
inline constexpr const char* photoBackupFolderKey = "photoBackupFolder";
/// "Pictures/Nuvrel" in the user's home: where photos go until another folder is chosen.
QString defaultPhotoBackupFolder();

/// Which creation dates a selection takes.
enum class Period { All, Last30, Last90, ThisYear, Custom };

/// "all", "last30"…: the name a setting or the command line gives a period.
QString periodRawValue(Period period);
std::optional<Period> periodFromRawValue(const QString& raw);
/// "Tout", "30 derniers jours"…, in the language in force.
QString periodTitle(Period period);

/// What the user chose to copy.
struct ImportChoices
{
    bool photos = true;
    bool videos = true;
    Period period = Period::All;
    QDate from; ///< first day of a custom period, included; invalid: no first day
    QDate to;   ///< last day of a custom period, included; invalid: no last day
};

/// A video when its type identifier says a movie; without one, when its extension is "mov", "mp4" or
/// "m4v" in any case. Anything else is a photo.
bool isVideo(const CameraFile& file);

/// The files the choices take, oldest first; a file without a date sorts first, and equal dates keep
/// the source's order. `now` is the moment "the last 30 days" end.
QList<CameraFile> selectFiles(const QList<CameraFile>& files, const ImportChoices& choices, const QDateTime& now);
/// Every file, in the same order: what "Copier tout l'iPhone" copies.
QList<CameraFile> allFilesInOrder(const QList<CameraFile>& files);

/// "Date-inconnue": the folder of files whose date cannot be right.
QString unknownDateFolderName();
/// The month folder's name of a file created at `created` ("2024-03"), in the local calendar; "now"
/// stands for a missing date. A year of 1989 or before, or more than one year after `now`'s, comes
/// from a camera whose clock was reset: those files go to unknownDateFolderName().
QString monthFolderName(const QDateTime& created, const QDateTime& now);

/// The name a file of the run is saved under when `name` is taken in its month folder: the base name,
/// "-", the file's position in the run (from 1), and the extension.
QString runIndexedName(const QString& name, int position);

} // namespace nuvrel
