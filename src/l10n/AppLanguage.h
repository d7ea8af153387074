#pragma once

#include <QObject>
#include <QString>

#include <array>
#include <optional>

namespace nuvrel {
Q_NAMESPACE

/// The interface languages, in the order of the language menu.
enum class AppLanguage { Auto, Fr, En, SrLatn, SrCyrl, De, Es, It, Pt, Ru };
Q_ENUM_NS(AppLanguage)

inline constexpr std::array allAppLanguages{AppLanguage::Auto,   AppLanguage::Fr, AppLanguage::En, AppLanguage::SrLatn,
                                            AppLanguage::SrCyrl, AppLanguage::De, AppLanguage::Es, AppLanguage::It,
                                            AppLanguage::Pt,     AppLanguage::Ru};

/// The stable identifier kept in the settings ("auto", "fr", "sr", "sr-Cyrl", …).
QString identifier(AppLanguage language);
std::optional<AppLanguage> appLanguageFromIdentifier(QStringView identifier);

/// The name shown in the language menu; each language names itself, "Automatique" is localised.
QString displayName(AppLanguage language);

} // namespace nuvrel
