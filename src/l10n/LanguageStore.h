#pragma once

#include "l10n/AppLanguage.h"

#include <QObject>

#include <atomic>

namespace nuvrel {

/// The user's language choice, kept in the settings under "appLanguage".
/// Read from any thread (background work localises its progress lines); written on the GUI thread.
class LanguageStore final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(nuvrel::AppLanguage language READ language WRITE setLanguage NOTIFY languageChanged)

public:
    static constexpr QLatin1StringView settingsKey{"appLanguage"};

    /// The instance the whole program shares, loaded from the settings on first use.
    static LanguageStore& shared();

    explicit LanguageStore(QObject* parent = nullptr);

    AppLanguage language() const { return m_language.load(std::memory_order_relaxed); }
    /// Changes the language and saves it, so the choice survives a restart.
    void setLanguage(AppLanguage language);
    /// Changes the language for this run only (a command-line option), leaving the saved choice alone.
    void setLanguageForThisRun(AppLanguage language);
    /// Reloads the saved choice; a missing or unknown value means Auto.
    void reload();

Q_SIGNALS:
    void languageChanged(nuvrel::AppLanguage language);

private:
    void apply(AppLanguage language);

    std::atomic<AppLanguage> m_language{AppLanguage::Auto};
};

} // namespace nuvrel
