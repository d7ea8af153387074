#include "l10n/LanguageStore.h"

#include <QSettings>

namespace nuvrel {

LanguageStore& LanguageStore::shared()
{
    static LanguageStore store;
    return store;
}

LanguageStore::LanguageStore(QObject* parent)
    : QObject(parent)
{
    reload();
}

void LanguageStore::reload()
{
    const QString saved = QSettings().value(settingsKey).toString();
    apply(appLanguageFromIdentifier(saved).value_or(AppLanguage::Auto));
}

void LanguageStore::setLanguage(AppLanguage language)
{
    QSettings().setValue(settingsKey, identifier(language));
    apply(language);
}

void LanguageStore::setLanguageForThisRun(AppLanguage language)
{
    apply(language);
}

void LanguageStore::apply(AppLanguage language)
{
    if (m_language.exchange(language) != language)
        Q_EMIT languageChanged(language);
}

} // namespace nuvrel
