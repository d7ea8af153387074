#pragma once

#include "l10n/AppLanguage.h"

#include <QDateTime>
#include <QObject>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace nuvrel {

/// The daily look for a newer version: at most once per launch and once per 24 hours, each new version
/// announced once. Every network or decoding failure is silent.
class UpdateChecker final : public QObject
{
    Q_OBJECT

public:
    static constexpr QLatin1StringView lastCheckKey{"tervolo.update.lastCheck"};
    static constexpr QLatin1StringView notifiedVersionKey{"tervolo.update.notifiedVersion"};
    static constexpr qint64 interval = 86400;
    static constexpr qint64 maxReplyBytes = 9999;
    static constexpr int defaultAlertDelayMs = 8000;

    /// `baseUrl` empty: the maker's address chosen at build time (NUVREL_UPDATE_BASE_URL).
    explicit UpdateChecker(QUrl baseUrl = {}, QObject* parent = nullptr);

    /// Fetches the version file unless a check ran less than 24 hours ago or this object already checked.
    void startIfNeeded();

    /// <base>/<application name in lower case>.json
    QUrl address() const;
    void setAlertDelay(int milliseconds) { m_alertDelayMs = milliseconds; }
    void setClock(std::function<QDateTime()> clock) { m_clock = std::move(clock); }

    /// The alert's texts, in the language of the user's system (not the one chosen in the application).
    static AppLanguage systemLanguage();
    static QString alertTitle(AppLanguage language);
    static QString alertText(AppLanguage language, const QString& newVersion, const QString& page,
                             const QString& runningVersion);

Q_SIGNALS:
    /// A newer version was announced; emitted on the GUI thread, some seconds after the reply.
    void updateAvailable(const QString& version, const QUrl& page);
    /// The check ended, whatever its outcome (for tests).
    void finished();

private:
    void handleReply(QNetworkReply* reply);

    QUrl m_baseUrl;
    QNetworkAccessManager* m_network = nullptr;
    bool m_started = false;
    int m_alertDelayMs = defaultAlertDelayMs;
    std::function<QDateTime()> m_clock;
};

} // namespace nuvrel
