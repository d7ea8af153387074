#pragma once

// The one way to write a user-visible text: French in the code, translated at the call.
//   L("Actualiser")
//   L("%@ sur %@", done, total)
// The literal must be a plain string literal so that the translation check finds it.

#include "l10n/Localizer.h"

#include <QString>
#include <QStringList>

#include <concepts>

namespace nuvrel {

namespace detail {
inline QString textArgument(const QString& value)
{
    return value;
}
inline QString textArgument(QStringView value)
{
    return value.toString();
}
template <std::integral Integer>
requires(!std::same_as<Integer, bool> && !std::same_as<Integer, char>) QString textArgument(Integer value)
{
    return QString::number(value);
}
} // namespace detail

/// Marks a French text that is translated later, into a language chosen at that time
/// (Localizer::translate(text, language)); the translation check finds it like L("…").
constexpr const char* LKey(const char* french)
{
    return french;
}

/// The French text translated into the language in force.
inline QString L(const char* french)
{
    return Localizer::translate(QString::fromUtf8(french));
}

/// The French template translated, then filled with the arguments in order.
template <typename... Args>
requires(sizeof...(Args) > 0) QString L(const char* french, const Args&... args)
{
    return Localizer::fill(Localizer::translate(QString::fromUtf8(french)), {detail::textArgument(args)...});
}

/// A text that holds a count, in the plural form the count takes in the language in force (CLDR rules:
/// "one", "few", "many", "other"…). The French text, written with its "(s)", is the key; the count
/// chooses the form and is shown only where the text places it, as any argument:
///   LN("%@ fichier(s) extraits", done, Localizer::locale().toString(done))
template <typename... Args>
QString LN(const char* french, qint64 count, const Args&... args)
{
    return Localizer::fill(Localizer::translatePlural(QString::fromUtf8(french), count),
                           {detail::textArgument(args)...});
}

} // namespace nuvrel
