#pragma once

#include "l10n/AppLanguage.h"

#include <QLocale>
#include <QString>
#include <QStringList>

#include <optional>

class QDate;
class QDateTime;

namespace nuvrel {

/// Language resolution, translation lookup and placeholder filling. Safe to call from any thread.
class Localizer final
{
public:
    Localizer() = delete;

    /// The language in force: the saved choice, else the system's preference (never Auto).
    static AppLanguage resolved();
    /// The resolution rule on its own: `chosen` unless Auto, else the first preferred language we speak, else English.
    static AppLanguage resolve(AppLanguage chosen, const QStringList& preferredLanguages);

    /// The translation of a French key, or nothing when the language is French or the key is missing.
    static std::optional<QString> lookup(const QString& french);
    static std::optional<QString> lookup(const QString& french, AppLanguage language);

    /// The French text this build shows for `french`: on Linux, the Linux wording of a text that names
    /// something of macOS (Finder, Mac, Trousseau…); the text itself otherwise. Translations are
    /// looked up by the text shown.
    static QString platformText(const QString& french);

    /// The translation of the text this build shows when there is one, otherwise that French text.
    static QString translate(const QString& french);
    static QString translate(const QString& french, AppLanguage language);

    /// The CLDR plural category of `count` in `language` ("one", "few", "many", "other"…), from ICU.
    static QString pluralCategory(qint64 count, AppLanguage language);
    /// Every category `language` has, "other" last.
    static QStringList pluralCategories(AppLanguage language);
    /// The form of a text that holds a count (see LN) for the category of `count`.
    static QString translatePlural(const QString& french, qint64 count);
    static QString translatePlural(const QString& french, qint64 count, AppLanguage language);

    /// Replaces "%@" (in order) and "%n$@" (by number) with the arguments; see the unit tests for the edge rules.
    static QString fill(QStringView templateText, const QStringList& arguments);

    /// The locale for numbers and dates in the language in force.
    static QLocale locale();
    static QLocale locale(AppLanguage language);

    /// A date as a person reads it: the long form without the weekday ("22 novembre 2026").
    static QString formatDate(QDate date);
    static QString formatDate(QDate date, const QLocale& locale);
    /// A date and time as a person reads it: long date without the weekday, short time, local time zone.
    static QString formatDateTime(const QDateTime& dateTime);
    static QString formatDateTime(const QDateTime& dateTime, const QLocale& locale);
    /// A size as the Finder shows it, in powers of 1000 ("1,4 Go", "820 Ko", "12 octets").
    static QString formatByteCount(qint64 bytes);
};

} // namespace nuvrel
