#pragma once

#include <QString>

namespace nuvrel {

/// Serbian Latin to Serbian Cyrillic, leaving product words and placeholders in Latin letters.
class Cyrillic final
{
public:
    Cyrillic() = delete;

    static QString convert(QStringView latin);
    /// Whether a word (compared in lower case) is one of the words that stay in Latin letters.
    static bool keeps(QStringView word);
};

} // namespace nuvrel
