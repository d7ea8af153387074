#include "engines/conversations/ConversationError.h"

#include "l10n/L.h"

namespace nuvrel {

QString ConversationError::message() const
{
    switch (m_kind) {
    case Kind::NoAccess:
        // The detail is already localised; it follows the translated sentence as it is.
        return L("Nuvrel n'a pas encore le droit de lire ces conversations. Ouvre Réglages Système > Confidentialité "
                 "et sécurité > Accès complet au disque. Si Nuvrel est déjà coché : décoche-le, recoche-le (macOS "
                 "l'oublie après chaque nouvelle version de l'app), puis quitte et rouvre Nuvrel. (") +
               m_detail + u')';
    case Kind::Unreadable: return L("Impossible de lire ce fichier ou cette base de messages.");
    case Kind::Empty: return L("Aucun message trouvé (vérifie la période choisie).");
    }
    return {};
}

const char* ConversationError::what() const noexcept
{
    switch (m_kind) {
    case Kind::NoAccess: return "conversation database cannot be copied";
    case Kind::Unreadable: return "conversation database unreadable";
    case Kind::Empty: return "no message";
    }
    return "conversation error";
}

} // namespace nuvrel
