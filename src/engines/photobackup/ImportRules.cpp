#include "engines/photobackup/ImportRules.h"

#include "ground/FreeName.h"
#include "l10n/L.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

namespace nuvrel {

QString defaultPhotoBackupFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::PicturesLocation) + QStringLiteral("/Nuvrel");
}

QString periodRawValue(Period period)
{
    switch (period) {
    case Period::All: return QStringLiteral("all");
    case Period::Last30: return QStringLiteral("last30");
    case Period::Last90: return QStringLiteral("last90");
    case Period::ThisYear: return QStringLiteral("thisYear");
    case Period::Custom: return QStringLiteral("custom");
    }
    return {};
}

std::optional<Period> periodFromRawValue(const QString& raw)
{
    for (const Period period : {Period::All, Period::Last30, Period::Last90, Period::ThisYear, Period::Custom}) {
        if (periodRawValue(period) == raw)
            return period;
    }
    return std::nullopt;
}

QString periodTitle(Period period)
{
    switch (period) {
    case Period::All: return L("Tout");
    case Period::Last30: return L("30 derniers jours");
    case Period::Last90: return L("3 derniers mois");
    case Period::ThisYear: return L("Cette année");
    case Period::Custom: return L("Choisir les dates");
    }
    return {};
}

bool isVideo(const CameraFile& file)
{
    if (!file.typeIdentifier.isEmpty()) {
        static const QStringList movieTypes = {
            QStringLiteral("public.movie"),
            QStringLiteral("public.video"),
            QStringLiteral("com.apple.quicktime-movie"),
            QStringLiteral("public.mpeg-4"),
            QStringLiteral("com.apple.m4v-video"),
            QStringLiteral("public.avi"),
            QStringLiteral("public.3gpp"),
            QStringLiteral("public.mpeg"),
        };
        return movieTypes.contains(file.typeIdentifier);
    }
    const QString suffix = QFileInfo(file.name).suffix().toLower();
    return suffix == u"mov" || suffix == u"mp4" || suffix == u"m4v";
}

namespace {

bool inPeriod(const QDateTime& created, const ImportChoices& choices, const QDateTime& now)
{
    if (choices.period == Period::All)
        return true;
    if (!created.isValid())
        return false;
    switch (choices.period) {
    case Period::Last30: return created >= now.addDays(-30) && created <= now;
    case Period::Last90: return created >= now.addDays(-90) && created <= now;
    case Period::ThisYear: return created.toLocalTime().date().year() == now.toLocalTime().date().year();
    case Period::Custom: {
        const QDate day = created.toLocalTime().date();
        return (!choices.from.isValid() || day >= choices.from) && (!choices.to.isValid() || day <= choices.to);
    }
    case Period::All: break;
    }
    return true;
}

} // namespace

QList<CameraFile> allFilesInOrder(const QList<CameraFile>& files)
{
    QList<CameraFile> sorted = files;
    // Undated files first, as the most distant past.
    std::stable_sort(sorted.begin(), sorted.end(), [](const CameraFile& a, const CameraFile& b) {
        if (!a.created.isValid() || !b.created.isValid())
            return !a.created.isValid() && b.created.isValid();
        return a.created < b.created;
    });
    return sorted;
}

QList<CameraFile> selectFiles(const QList<CameraFile>& files, const ImportChoices& choices, const QDateTime& now)
{
    QList<CameraFile> kept;
    for (const CameraFile& file : files) {
        const bool video = isVideo(file);
        if ((video && !choices.videos) || (!video && !choices.photos))
            continue;
        if (inPeriod(file.created, choices, now))
            kept.append(file);
    }
    return allFilesInOrder(kept);
}

QString unknownDateFolderName()
{
    return QStringLiteral("Date-inconnue");
}

QString monthFolderName(const QDateTime& created, const QDateTime& now)
{
    const QDate day = (created.isValid() ? created : now).toLocalTime().date();
    const int thisYear = now.toLocalTime().date().year();
    if (day.year() <= 1989 || day.year() > thisYear + 1)
        return unknownDateFolderName();
    return QStringLiteral("%1-%2").arg(day.year(), 4, 10, QLatin1Char('0')).arg(day.month(), 2, 10, QLatin1Char('0'));
}

QString runIndexedName(const QString& name, int position)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    const QString number = u'-' + QString::number(position);
    if (dot <= 0)
        return nameWithTail(name, number);
    return nameWithTail(name.left(dot), number + name.mid(dot));
}

} // namespace nuvrel
