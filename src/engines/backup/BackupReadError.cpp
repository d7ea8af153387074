#include "engines/backup/BackupReadError.h"

#include "l10n/L.h"

namespace nuvrel {

namespace {

QString subjectText(BackupReadError::Subject subject)
{
    using Subject = BackupReadError::Subject;
    switch (subject) {
    case Subject::ManifestDb: return QStringLiteral("Manifest.db");
    case Subject::ManifestMbdb: return QStringLiteral("Manifest.mbdb");
    case Subject::FileList: return L("liste des fichiers");
    case Subject::MissingFile: return L("fichier absent de la sauvegarde");
    case Subject::Decryption: return L("déchiffrement");
    case Subject::MissingFileKey: return L("clé du fichier absente");
    case Subject::FileKey: return L("clé du fichier");
    case Subject::EncryptedLength: return L("la copie chiffrée d'un fichier n'a pas la longueur attendue");
    case Subject::KeyBag: return L("ses clés de chiffrement sont illisibles");
    case Subject::EncryptionRecord: return L("la description de son chiffrement est illisible");
    }
    return {};
}

} // namespace

QString BackupReadError::message() const
{
    switch (m_kind) {
    case Kind::Unreadable:
        return L("Impossible de lire la sauvegarde (%@). Vérifie que Nuvrel a l'accès complet au disque.",
                 subjectText(m_subject));
    case Kind::NeedsPassword: return L("Il faut le mot de passe de la sauvegarde.");
    case Kind::WrongPassword:
        return L("Ce mot de passe n'est pas le bon. C'est celui que tu as choisi dans le Finder pour chiffrer la "
                 "sauvegarde.");
    case Kind::Unsupported: return L("Le format de cette sauvegarde n'est pas encore pris en charge.");
    case Kind::WriteFailed:
        if (m_writeKind != SystemErrorKind::Other)
            return FileError(FileError::Operation::Write, m_writeKind, m_path).message();
        return L("Impossible d'écrire « %@ ». Vérifie qu'il reste de la place sur le disque et que tu peux écrire "
                 "dans ce dossier.",
                 m_path);
    case Kind::Cancelled: return L("Opération annulée.");
    case Kind::Damaged: return L("La sauvegarde est endommagée : %@.", subjectText(m_subject));
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
