#include "engines/backup/BackupReadError.h"

#include "l10n/L.h"

namespace nuvrel {

namespace {

using Subject = BackupReadError::Subject;

// The file an Unreadable error is about, as the user may look for it.
QString fileText(Subject subject)
{
    switch (subject) {
    case Subject::InfoPlist: return QStringLiteral("Info.plist");
    case Subject::Index: return L("son index (%@)", QStringLiteral("Manifest.db"));
    case Subject::ManifestDb: return QStringLiteral("Manifest.db");
    case Subject::ManifestMbdb: return QStringLiteral("Manifest.mbdb");
    case Subject::KeyBag:
    case Subject::EncryptionRecord:
    case Subject::ManifestKey: return QStringLiteral("Manifest.plist");
    case Subject::FileList:
    case Subject::MissingFile:
    case Subject::Decryption:
    case Subject::MissingFileKey:
    case Subject::FileKey:
    case Subject::EncryptedLength: break;
    }
    return L("la copie d'un fichier");
}

// What is wrong with the part a Damaged error is about.
QString damageText(Subject subject)
{
    switch (subject) {
    case Subject::InfoPlist: return L("son fichier %@ est illisible", QStringLiteral("Info.plist"));
    case Subject::Index:
    case Subject::ManifestDb:
    case Subject::ManifestMbdb:
    case Subject::FileList: return L("la liste de ses fichiers est illisible");
    case Subject::MissingFile: return L("la copie d'un fichier est illisible");
    case Subject::Decryption: return L("des données ne se déchiffrent pas");
    case Subject::MissingFileKey: return L("la clé d'un fichier manque");
    case Subject::FileKey: return L("la clé d'un fichier est illisible");
    case Subject::EncryptedLength: return L("la copie chiffrée d'un fichier n'a pas la longueur attendue");
    case Subject::KeyBag: return L("ses clés de chiffrement sont illisibles");
    case Subject::EncryptionRecord: return L("la description de son chiffrement est illisible");
    case Subject::ManifestKey: return L("la clé de sa liste de fichiers est illisible");
    }
    return {};
}

} // namespace

QString BackupReadError::message() const
{
    switch (m_kind) {
    case Kind::Unreadable:
        switch (m_systemKind) {
        case SystemErrorKind::NoPermission:
            return L("Impossible de lire la sauvegarde (%@). Vérifie que Nuvrel a l'accès complet au disque.",
                     fileText(m_subject));
        case SystemErrorKind::Missing: return L("La sauvegarde est incomplète : %@ manque.", fileText(m_subject));
        default: return L("Impossible de lire la sauvegarde (%@).", fileText(m_subject));
        }
    case Kind::NeedsPassword: return L("Il faut le mot de passe de la sauvegarde.");
    case Kind::WrongPassword:
        return L("Ce mot de passe n'est pas le bon. C'est celui que tu as choisi dans le Finder pour chiffrer la "
                 "sauvegarde.");
    case Kind::Unsupported: return L("Le format de cette sauvegarde n'est pas encore pris en charge.");
    case Kind::WriteFailed: return FileError(FileError::Operation::Write, m_systemKind, m_path).message();
    case Kind::Cancelled: return L("Opération annulée.");
    case Kind::Damaged: return L("La sauvegarde est endommagée : %@.", damageText(m_subject));
    }
    return {};
}

const char* BackupReadError::what() const noexcept
{
    switch (m_kind) {
    case Kind::Unreadable: return "backup unreadable";
    case Kind::NeedsPassword: return "backup needs a password";
    case Kind::WrongPassword: return "wrong backup password";
    case Kind::Unsupported: return "unsupported backup format";
    case Kind::WriteFailed: return "cannot write the extracted file";
    case Kind::Cancelled: return "cancelled";
    case Kind::Damaged: return "backup damaged";
    }
    return "backup error";
}

} // namespace nuvrel
