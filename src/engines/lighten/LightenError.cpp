#include "engines/lighten/LightenError.h"

#include "l10n/L.h"
#include "media/PhotoFile.h"

namespace nuvrel {

QString LightenError::message() const
{
    switch (m_kind) {
    case Kind::Unreadable: return L("Impossible de lire ce fichier.");
    case Kind::Unsupported: return L("Format pas encore pris en charge (photos et vidéos seulement).");
    case Kind::VideoFailed: return L("Impossible d'alléger cette vidéo.");
    case Kind::TooLarge:
        return L("Cette image annonce plus de %@ millions de pixels : Nuvrel ne l'ouvre pas.",
                 Localizer::locale().toString(PhotoFile::maxPixels / 1'000'000));
    case Kind::Protected: return L("Ce PDF est protégé par un mot de passe : il ne peut pas être allégé.");
    case Kind::NoVideoTool:
        return L("Les vidéos ne peuvent pas être allégées : l'outil %@ n'est pas installé.", QStringLiteral("ffmpeg"));
    case Kind::Cancelled: return L("Arrêté.");
    }
    return {};
}

const char* LightenError::what() const noexcept
{
    switch (m_kind) {
    case Kind::Unreadable: return "file unreadable";
    case Kind::Unsupported: return "format not supported";
    case Kind::VideoFailed: return "video could not be lightened";
    case Kind::TooLarge: return "picture too large";
    case Kind::Protected: return "PDF locked by a password";
    case Kind::NoVideoTool: return "ffmpeg missing";
    case Kind::Cancelled: return "cancelled";
    }
    return "lighten error";
}

} // namespace nuvrel
