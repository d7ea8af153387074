#include "l10n/AppLanguage.h"

#include "l10n/L.h"

namespace nuvrel {

QString identifier(AppLanguage language)
{
    switch (language) {
    case AppLanguage::Auto: return QStringLiteral("auto");
    case AppLanguage::Fr: return QStringLiteral("fr");
    case AppLanguage::En: return QStringLiteral("en");
    case AppLanguage::SrLatn: return QStringLiteral("sr");
    case AppLanguage::SrCyrl: return QStringLiteral("sr-Cyrl");
    case AppLanguage::De: return QStringLiteral("de");
    case AppLanguage::Es: return QStringLiteral("es");
    case AppLanguage::It: return QStringLiteral("it");
    case AppLanguage::Pt: return QStringLiteral("pt");
    case AppLanguage::Ru: return QStringLiteral("ru");
    }
    return {};
}

std::optional<AppLanguage> appLanguageFromIdentifier(QStringView id)
{
    for (AppLanguage language : allAppLanguages) {
        if (id == identifier(language))
            return language;
    }
    return std::nullopt;
}

QString displayName(AppLanguage language)
{
    switch (language) {
    case AppLanguage::Auto: return L("Automatique");
    case AppLanguage::Fr: return QStringLiteral("Français");
    case AppLanguage::En: return QStringLiteral("English");
    case AppLanguage::SrLatn: return QStringLiteral("Srpski (latinica)");
    case AppLanguage::SrCyrl: return QStringLiteral("Српски (ћирилица)");
    case AppLanguage::De: return QStringLiteral("Deutsch");
    case AppLanguage::Es: return QStringLiteral("Español");
    case AppLanguage::It: return QStringLiteral("Italiano");
    case AppLanguage::Pt: return QStringLiteral("Português");
    case AppLanguage::Ru: return QStringLiteral("Русский");
    }
    return {};
}

} // namespace nuvrel
