#include "engines/conversations/ConversationError.h"

#include "l10n/L.h"
#include "l10n/Localizer.h"

#include <QDir>

namespace nuvrel {

ConversationError ConversationError::file(FileError error)
{
    if (error.operation() == FileError::Operation::Read && error.kind() == SystemErrorKind::NoPermission)
        return noAccess(error.path());
    ConversationError result(Kind::File, error.path());
    result.m_fileError = std::move(error);
    return result;
}

QString ConversationError::message() const
{
    switch (m_kind) {
    case Kind::NoAccess:
        return L("Nuvrel n'a pas encore le droit de lire ces conversations. Ouvre Réglages Système > Confidentialité "
                 "et sécurité > Accès complet au disque. Si Nuvrel est déjà coché : décoche-le, recoche-le (macOS "
                 "l'oublie après chaque nouvelle version de l'app), puis quitte et rouvre Nuvrel. (") +
               QDir::toNativeSeparators(m_path) + u')';
    case Kind::File:
        return m_fileError ? m_fileError->message() : L("Impossible de lire %@.", QDir::toNativeSeparators(m_path));
    case Kind::Unreadable: return L("Impossible de lire ce fichier ou cette base de messages.");
    case Kind::Empty: return L("Aucun message trouvé (vérifie la période choisie).");
    case Kind::TooLarge:
        return L("%@ est trop gros pour une conversation exportée (au plus %@).", QDir::toNativeSeparators(m_path),
                 Localizer::formatByteCount(m_limit));
    case Kind::SuspectArchive:
        return L("Nuvrel n'ouvre pas %@ : un fichier de cette archive se décompresse à plus de %@ fois sa taille, ce "
                 "qu'aucun export ne fait.",
                 QDir::toNativeSeparators(m_path), Localizer::locale().toString(m_limit));
    }
    return {};
}

const char* ConversationError::what() const noexcept
{
    switch (m_kind) {
    case Kind::NoAccess: return "reading the conversations was refused";
    case Kind::File: return "a conversation file failed";
    case Kind::Unreadable: return "conversation database unreadable";
    case Kind::Empty: return "no message";
    case Kind::TooLarge: return "export too large";
    case Kind::SuspectArchive: return "archive compressed out of proportion";
    }
    return "conversation error";
}

} // namespace nuvrel
