#include "app/shell/UpdateChecker.h"

#include "l10n/L.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSettings>
#include <QTimer>
#include <QVersionNumber>

#ifndef NUVREL_UPDATE_BASE_URL
#error "NUVREL_UPDATE_BASE_URL is set by the build"
#endif

namespace nuvrel {

UpdateChecker::UpdateChecker(QUrl baseUrl, QObject* parent)
    : QObject(parent)
    , m_baseUrl(baseUrl.isEmpty() ? QUrl(QStringLiteral(NUVREL_UPDATE_BASE_URL)) : std::move(baseUrl))
    , m_clock([] { return QDateTime::currentDateTimeUtc(); })
{}

QUrl UpdateChecker::address() const
{
    QString base = m_baseUrl.toString();
    if (!base.endsWith(u'/'))
        base += u'/';
    return QUrl(base + QCoreApplication::applicationName().toLower() + QStringLiteral(".json"));
}

void UpdateChecker::startIfNeeded()
{
    if (m_started)
        return;
    m_started = true;
    QSettings settings;
    const qint64 now = m_clock().toSecsSinceEpoch();
    const qint64 last = settings.value(lastCheckKey, 0).toLongLong();
    if (now - last < interval && now >= last) {
        Q_EMIT finished();
        return;
    }
    settings.setValue(lastCheckKey, now);

    m_network = new QNetworkAccessManager(this);
    QNetworkRequest request(address());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(15'000);
    QNetworkReply* reply = m_network->get(request);
    // A reply longer than any version file is not one: stop reading at once.
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > maxReplyBytes)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleReply(reply); });
}

void UpdateChecker::handleReply(QNetworkReply* reply)
{
    reply->deleteLater();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QByteArray body = reply->read(maxReplyBytes + 1);
    if (reply->error() != QNetworkReply::NoError || status < 200 || status > 299 || body.size() > maxReplyBytes) {
        Q_EMIT finished();
        return;
    }
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    const QString version = object.value(QLatin1StringView("version")).toString();
    const QUrl page(object.value(QLatin1StringView("page")).toString());
    QSettings settings;
    // Only a newer version, with a web page to send the user to: never a downgrade, never another scheme.
    const QVersionNumber announced = QVersionNumber::fromString(version);
    if (version.isEmpty() || version == QCoreApplication::applicationVersion() ||
        version == settings.value(notifiedVersionKey).toString() || announced.isNull() ||
        announced <= QVersionNumber::fromString(QCoreApplication::applicationVersion()) || page.scheme() != u"https" ||
        page.host().isEmpty()) {
        Q_EMIT finished();
        return;
    }
    settings.setValue(notifiedVersionKey, version);
    QTimer::singleShot(m_alertDelayMs, this, [this, version, page] {
        Q_EMIT updateAvailable(version, page);
        Q_EMIT finished();
    });
}

AppLanguage UpdateChecker::systemLanguage()
{
    return Localizer::resolve(AppLanguage::Auto, QLocale::system().uiLanguages());
}

QString UpdateChecker::alertTitle(AppLanguage language)
{
    return Localizer::translate(QString::fromUtf8(LKey("Une nouvelle version est disponible")), language);
}

QString UpdateChecker::alertText(AppLanguage language, const QString& newVersion, const QString& page,
                                 const QString& runningVersion)
{
    const QString text = Localizer::translate(
        QString::fromUtf8(LKey("Nuvrel %1$@ peut être téléchargé sur %2$@. Tu as la version %3$@.")), language);
    return Localizer::fill(text, {newVersion, page, runningVersion});
}

} // namespace nuvrel
