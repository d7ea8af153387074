#include "l10n/Localizer.h"

#include "l10n/Cyrillic.h"
#include "l10n/L.h"
#include "l10n/LanguageStore.h"
#include "l10n/Translations.h"

#include <QDateTime>
#include <QRegularExpression>

#include <unicode/plurrule.h>

#include <array>
#include <memory>

namespace nuvrel {

AppLanguage Localizer::resolved()
{
    // Every localised text asks; the system's preferences are read once per run, as applications do.
    static const QStringList preferred = QLocale::system().uiLanguages();
    return resolve(LanguageStore::shared().language(), preferred);
}

AppLanguage Localizer::resolve(AppLanguage chosen, const QStringList& preferredLanguages)
{
    if (chosen != AppLanguage::Auto)
        return chosen;
    struct Prefix
    {
        QLatin1StringView prefix;
        AppLanguage language;
    };
    static constexpr Prefix prefixes[] = {
        {QLatin1StringView("fr"), AppLanguage::Fr}, {QLatin1StringView("en"), AppLanguage::En},
        {QLatin1StringView("de"), AppLanguage::De}, {QLatin1StringView("es"), AppLanguage::Es},
        {QLatin1StringView("it"), AppLanguage::It}, {QLatin1StringView("pt"), AppLanguage::Pt},
        {QLatin1StringView("ru"), AppLanguage::Ru},
    };
    for (const QString& preferred : preferredLanguages) {
        const QString tag = preferred.toLower();
        if (tag.startsWith(QLatin1StringView("sr")))
            return tag.contains(QLatin1StringView("latn")) ? AppLanguage::SrLatn : AppLanguage::SrCyrl;
        for (const Prefix& candidate : prefixes) {
            if (tag.startsWith(candidate.prefix))
                return candidate.language;
        }
    }
    return AppLanguage::En;
}

std::optional<QString> Localizer::lookup(const QString& french)
{
    return lookup(french, resolved());
}

std::optional<QString> Localizer::lookup(const QString& french, AppLanguage language)
{
    const Translations::Table* table = Translations::table(language);
    if (!table)
        return std::nullopt;
    const auto found = table->constFind(french);
    if (found == table->cend())
        return std::nullopt;
    if (language == AppLanguage::SrCyrl)
        return Cyrillic::convert(found.value());
    return found.value();
}

QString Localizer::translate(const QString& french)
{
    return translate(french, resolved());
}

QString Localizer::platformText(const QString& french)
{
#if defined(NUVREL_LINUX_TEXTS)
    return Translations::linuxTexts().value(french, french);
#else
    return french;
#endif
}

QString Localizer::translate(const QString& french, AppLanguage language)
{
    const QString shown = platformText(french);
    return lookup(shown, language).value_or(shown);
}

namespace {

// ICU's rules for each language, made once; select() on a made rule is safe from any thread.
const icu::PluralRules* pluralRules(AppLanguage language)
{
    static const auto rules = [] {
        std::array<std::unique_ptr<icu::PluralRules>, std::size(allAppLanguages)> made;
        for (size_t i = 0; i < std::size(allAppLanguages); ++i) {
            UErrorCode status = U_ZERO_ERROR;
            const QByteArray name = Localizer::locale(allAppLanguages[i]).name().toLatin1();
            made[i].reset(icu::PluralRules::forLocale(icu::Locale(name.constData()), status));
            if (U_FAILURE(status))
                made[i].reset();
        }
        return made;
    }();
    for (size_t i = 0; i < std::size(allAppLanguages); ++i) {
        if (allAppLanguages[i] == language)
            return rules[i].get();
    }
    return nullptr;
}

QString fromIcu(const icu::UnicodeString& text)
{
    return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

} // namespace

QString Localizer::pluralCategory(qint64 count, AppLanguage language)
{
    const icu::PluralRules* rules = pluralRules(language == AppLanguage::Auto ? resolved() : language);
    if (!rules)
        return QStringLiteral("other");
    return fromIcu(rules->select(static_cast<double>(count)));
}

QStringList Localizer::pluralCategories(AppLanguage language)
{
    const icu::PluralRules* rules = pluralRules(language == AppLanguage::Auto ? resolved() : language);
    QStringList categories;
    if (rules) {
        UErrorCode status = U_ZERO_ERROR;
        const std::unique_ptr<icu::StringEnumeration> keywords(rules->getKeywords(status));
        for (const icu::UnicodeString* keyword = keywords ? keywords->snext(status) : nullptr;
             keyword && U_SUCCESS(status); keyword = keywords->snext(status)) {
            categories.append(fromIcu(*keyword));
        }
    }
    // CLDR's own order, so that tables and messages list them alike.
    static const QStringList order{QStringLiteral("zero"), QStringLiteral("one"),  QStringLiteral("two"),
                                   QStringLiteral("few"),  QStringLiteral("many"), QStringLiteral("other")};
    std::sort(categories.begin(), categories.end(),
              [](const QString& a, const QString& b) { return order.indexOf(a) < order.indexOf(b); });
    if (!categories.contains(QStringLiteral("other")))
        categories.append(QStringLiteral("other"));
    return categories;
}

QString Localizer::translatePlural(const QString& french, qint64 count)
{
    return translatePlural(french, count, resolved());
}

QString Localizer::translatePlural(const QString& french, qint64 count, AppLanguage language)
{
    const QString shown = platformText(french);
    const QString category = pluralCategory(count, language);
    const Translations::Table* table =
        language == AppLanguage::Fr ? &Translations::frenchForms() : Translations::table(language);
    // The count's form, else the language's "other", else the French form, else the French text.
    if (table) {
        for (const QString& key :
             {Translations::pluralKey(shown, category), Translations::pluralKey(shown, QStringLiteral("other"))}) {
            if (const auto found = table->constFind(key); found != table->cend())
                return language == AppLanguage::SrCyrl ? Cyrillic::convert(*found) : *found;
        }
    }
    const QString frenchCategory = pluralCategory(count, AppLanguage::Fr);
    return Translations::frenchForms().value(Translations::pluralKey(shown, frenchCategory), shown);
}

QString Localizer::fill(QStringView templateText, const QStringList& arguments)
{
    // Without arguments a template is shown as written, so a literal "%" survives.
    if (arguments.isEmpty())
        return templateText.toString();

    QString result;
    result.reserve(templateText.size() + 16 * arguments.size());
    qsizetype next = 0;
    const qsizetype length = templateText.size();
    for (qsizetype i = 0; i < length; ++i) {
        const QChar c = templateText[i];
        if (c != u'%') {
            result.append(c);
            continue;
        }
        if (i + 1 < length && templateText[i + 1] == u'@') {
            if (next < arguments.size())
                result.append(arguments[next]);
            ++next;
            ++i;
            continue;
        }
        // "%<digits>$@" names its argument; anything else after "%" is copied as ordinary text.
        qsizetype j = i + 1;
        while (j < length && templateText[j].isDigit() && templateText[j].unicode() < 128)
            ++j;
        if (j > i + 1 && j + 1 < length && templateText[j] == u'$' && templateText[j + 1] == u'@') {
            bool ok = false;
            const qlonglong number = templateText.sliced(i + 1, j - i - 1).toLongLong(&ok);
            if (ok && number >= 1 && number <= arguments.size()) {
                result.append(arguments[static_cast<qsizetype>(number - 1)]);
                i = j + 1;
                continue;
            }
        }
        result.append(c);
    }
    return result;
}

QLocale Localizer::locale()
{
    return locale(resolved());
}

QLocale Localizer::locale(AppLanguage language)
{
    switch (language) {
    case AppLanguage::Auto: return QLocale::system();
    case AppLanguage::Fr: return QLocale(QLocale::French, QLocale::France);
    case AppLanguage::En: return QLocale(QLocale::English, QLocale::UnitedStates);
    case AppLanguage::SrLatn: return QLocale(QLocale::Serbian, QLocale::LatinScript, QLocale::Serbia);
    case AppLanguage::SrCyrl: return QLocale(QLocale::Serbian, QLocale::CyrillicScript, QLocale::Serbia);
    case AppLanguage::De: return QLocale(QLocale::German, QLocale::Germany);
    case AppLanguage::Es: return QLocale(QLocale::Spanish, QLocale::Spain);
    case AppLanguage::It: return QLocale(QLocale::Italian, QLocale::Italy);
    case AppLanguage::Pt: return QLocale(QLocale::Portuguese, QLocale::Brazil);
    case AppLanguage::Ru: return QLocale(QLocale::Russian, QLocale::Russia);
    }
    return QLocale::system();
}

QString Localizer::formatDateTime(const QDateTime& dateTime)
{
    return formatDateTime(dateTime, locale());
}

QString Localizer::formatDate(QDate date)
{
    return formatDate(date, locale());
}

QString Localizer::formatDate(QDate date, const QLocale& locale)
{
    // Qt's long date names the weekday; a list of dates reads better without it ("22 novembre 2026").
    static const QRegularExpression weekday(QStringLiteral("^dddd[,.]?\\s*|\\s*[,.]?\\s*dddd$"));
    QString dateFormat = locale.dateFormat(QLocale::LongFormat);
    dateFormat.remove(weekday);
    return locale.toString(date, dateFormat);
}

QString Localizer::formatDateTime(const QDateTime& dateTime, const QLocale& locale)
{
    // The language whose words join the date and the time: "3 mars 2026 à 10:04", "March 3, 2026 at 10:04".
    // Asked for every row of a list and every message printed: the locales are made once.
    static const auto locales = [] {
        std::array<QLocale, std::size(allAppLanguages)> made;
        for (size_t i = 0; i < std::size(allAppLanguages); ++i)
            made[i] = Localizer::locale(allAppLanguages[i]);
        return made;
    }();
    AppLanguage language = resolved();
    for (size_t i = 0; i < std::size(allAppLanguages); ++i) {
        if (allAppLanguages[i] != AppLanguage::Auto && locales[i] == locale) {
            language = allAppLanguages[i];
            break;
        }
    }
    const QDateTime local = dateTime.toLocalTime();
    return fill(translate(QString::fromUtf8(LKey("%@ à %@")), language),
                {formatDate(local.date(), locale), locale.toString(local.time(), QLocale::ShortFormat)});
}

QString Localizer::formatByteCount(qint64 bytes)
{
    const QLocale numbers = locale();
    if (bytes < 1000)
        return L("%@ octets", numbers.toString(std::max<qint64>(bytes, 0)));
    double value = double(bytes) / 1000.0;
    int unit = 0;
    while (value >= 999.95 && unit < 3) {
        value /= 1000.0;
        ++unit;
    }
    // One decimal below 100 ("4,2 Mo"), none above ("512 Mo").
    const QString number = numbers.toString(value, 'f', value < 99.95 ? 1 : 0);
    switch (unit) {
    case 0: return L("%@ Ko", number);
    case 1: return L("%@ Mo", number);
    case 2: return L("%@ Go", number);
    default: return L("%@ To", number);
    }
}

} // namespace nuvrel
