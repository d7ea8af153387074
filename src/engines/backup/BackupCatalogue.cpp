#include "engines/backup/BackupCatalogue.h"

#include "l10n/L.h"

#include <QCollator>
#include <QSet>

#include <algorithm>

namespace nuvrel {

const QString BackupCatalogue::cameraRollDomain = QStringLiteral("CameraRollDomain");
const QString BackupCatalogue::messagesDomain = QStringLiteral("HomeDomain");
const QString BackupCatalogue::messagesPath = QStringLiteral("Library/SMS/sms.db");
const QString BackupCatalogue::whatsAppDomain = QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared");
const QString BackupCatalogue::whatsAppPath = QStringLiteral("ChatStorage.sqlite");

namespace {

const QString whatsAppApp = QStringLiteral("AppDomain-net.whatsapp.WhatsApp");

QCollator fileManagerOrder()
{
    QCollator collator(Localizer::locale());
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

} // namespace

bool BackupCatalogue::isPhotoPath(const QString& path, bool* isVideo)
{
    static const QSet<QString> photoExtensions{QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("heic"),
                                               QStringLiteral("heif"), QStringLiteral("png"),  QStringLiteral("gif"),
                                               QStringLiteral("tif"),  QStringLiteral("tiff"), QStringLiteral("dng"),
                                               QStringLiteral("webp")};
    static const QSet<QString> videoExtensions{QStringLiteral("mov"), QStringLiteral("mp4"), QStringLiteral("m4v")};
    if (!path.startsWith(QLatin1StringView("Media/DCIM/")))
        return false;
    const qsizetype dot = path.lastIndexOf(u'.');
    if (dot < 0 || path.indexOf(u'/', dot) >= 0)
        return false;
    const QString extension = path.mid(dot + 1).toLower();
    const bool video = videoExtensions.contains(extension);
    if (isVideo)
        *isVideo = video;
    return video || photoExtensions.contains(extension);
}

bool BackupCatalogue::isPhoto(const BackupEntry& entry, bool* isVideo)
{
    return entry.domain == cameraRollDomain && isPhotoPath(entry.path, isVideo);
}

QString BackupCatalogue::friendly(const QString& domain)
{
    if (domain == cameraRollDomain)
        return L("Photos et vidéos");
    if (domain == messagesDomain)
        return L("Messages, contacts, notes et réglages");
    if (domain == u"MediaDomain")
        return L("Médias (pièces jointes, mémos vocaux)");
    if (domain == whatsAppApp || domain == whatsAppDomain)
        return L("WhatsApp (conversations et médias)");
    if (domain == u"AppDomain-ph.telegra.Telegraph")
        return L("Telegram");
    if (domain == u"AppDomain-com.burbn.instagram")
        return L("Instagram");
    if (domain == u"AppDomain-com.apple.mobilesafari")
        return L("Safari");
    if (domain == u"KeychainDomain")
        return L("Trousseau (données protégées)");
    if (domain == u"SystemPreferencesDomain")
        return L("Réglages du système");
    if (domain == u"HealthDomain")
        return L("Santé");
    const auto rest = [&domain](QLatin1StringView prefix) { return domain.mid(prefix.size()); };
    if (domain.startsWith(QLatin1StringView("AppDomainGroup-")))
        return L("App partagée : ") + rest(QLatin1StringView("AppDomainGroup-"));
    if (domain.startsWith(QLatin1StringView("AppDomainPlugin-")))
        return L("Extension : ") + rest(QLatin1StringView("AppDomainPlugin-"));
    if (domain.startsWith(QLatin1StringView("AppDomain-")))
        return L("App : ") + rest(QLatin1StringView("AppDomain-"));
    if (domain.startsWith(QLatin1StringView("SysSharedContainerDomain-")))
        return L("Système : ") + rest(QLatin1StringView("SysSharedContainerDomain-"));
    if (domain.startsWith(QLatin1StringView("SysContainerDomain-")))
        return L("Système : ") + rest(QLatin1StringView("SysContainerDomain-"));
    return domain;
}

int BackupCatalogue::domainRank(const QString& domain)
{
    if (domain == cameraRollDomain)
        return 0;
    if (domain == whatsAppDomain)
        return 1;
    if (domain == whatsAppApp)
        return 2;
    if (domain == messagesDomain)
        return 3;
    if (domain == u"MediaDomain")
        return 4;
    return 99;
}

BackupCatalogue BackupCatalogue::organize(QList<BackupEntry> entries)
{
    BackupCatalogue result;
    QStringList domainOrder;
    for (BackupEntry& entry : entries) {
        bool video = false;
        if (isPhoto(entry, &video)) {
            const MBFileInfo meta = entry.meta();
            result.photos.append(BackupPhoto{entry, meta.size, meta.mtime, video});
        } else if (entry.domain == messagesDomain && entry.path == messagesPath) {
            result.messagesDatabase = entry;
        } else if (entry.domain == whatsAppDomain && entry.path == whatsAppPath) {
            result.whatsAppDatabase = entry;
        }
        auto slot = result.byDomain.find(entry.domain);
        if (slot == result.byDomain.end()) {
            domainOrder.append(entry.domain);
            slot = result.byDomain.insert(entry.domain, {});
        }
        slot->append(std::move(entry));
    }

    // Newest first; undated photos go last, in index order.
    std::stable_sort(result.photos.begin(), result.photos.end(), [](const BackupPhoto& a, const BackupPhoto& b) {
        if (!a.date || !b.date)
            return a.date.has_value() && !b.date.has_value();
        return *a.date > *b.date;
    });

    result.domains.reserve(domainOrder.size());
    for (const QString& domain : std::as_const(domainOrder))
        result.domains.append(DomainRow{domain, friendly(domain), result.byDomain.value(domain).size()});
    std::stable_sort(result.domains.begin(), result.domains.end(), [](const DomainRow& a, const DomainRow& b) {
        const int rankA = domainRank(a.domain);
        const int rankB = domainRank(b.domain);
        if (rankA != rankB)
            return rankA < rankB;
        return a.count > b.count;
    });
    return result;
}

QList<FolderItem> BackupCatalogue::listing(const QList<BackupEntry>& entries, const QStringList& folder)
{
    const QString prefix = folder.isEmpty() ? QString() : folder.join(u'/') + u'/';
    QList<FolderItem> folders;
    QHash<QString, qsizetype> folderIndex;
    QList<FolderItem> files;
    for (const BackupEntry& entry : entries) {
        if (!entry.path.startsWith(prefix) || entry.path.size() == prefix.size())
            continue;
        const QStringView rest = QStringView(entry.path).mid(prefix.size());
        const qsizetype slash = rest.indexOf(u'/');
        const qint64 size = entry.meta().size;
        if (slash < 0) {
            files.append(FolderItem{entry.fileID, rest.toString(), false, 0, size, entry});
            continue;
        }
        const QString name = rest.left(slash).toString();
        // Empty, "." and ".." components lead nowhere a person could browse; extraction still cleans them.
        if (name.isEmpty() || name == u"." || name == u"..")
            continue;
        auto found = folderIndex.constFind(name);
        if (found == folderIndex.constEnd()) {
            found = folderIndex.insert(name, folders.size());
            folders.append(FolderItem{QStringLiteral("dir:") + name, name, true, 0, 0, std::nullopt});
        }
        FolderItem& item = folders[*found];
        item.count += 1;
        item.size += size;
    }
    const QCollator collator = fileManagerOrder();
    const auto byName = [&collator](const FolderItem& a, const FolderItem& b) {
        return collator.compare(a.name, b.name) < 0;
    };
    std::stable_sort(folders.begin(), folders.end(), byName);
    std::stable_sort(files.begin(), files.end(), byName);
    folders.append(files);
    return folders;
}

} // namespace nuvrel
