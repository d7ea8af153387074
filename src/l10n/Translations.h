#pragma once

#include "l10n/AppLanguage.h"

#include <QByteArrayView>
#include <QHash>
#include <QString>

namespace nuvrel {

/// The seven translation tables, French text to translation, compiled in as resources.
///
/// A table file holds one entry per line, "French<TAB>translation", in UTF-8; "\n", "\t" and "\\" escape
/// a line break, a tab and a backslash; blank lines and lines starting with "#" are ignored.
/// A text that holds a count (LN) has one entry per plural category its language has, keyed by the
/// French text and the category: "%@ fichier(s)[one]<TAB>%@ file". French itself has such forms too,
/// in a table of its own.
class Translations final
{
public:
    using Table = QHash<QString, QString>;

    struct Parsed
    {
        Table table;
        QString error; ///< empty when the file is sound
    };

    Translations() = delete;

    /// The table a language looks up (Serbian Cyrillic shares the Latin one); null for French and Auto.
    /// Loaded once on first use; a broken table stops the program, since it can only be a build mistake.
    static const Table* table(AppLanguage language);

    /// The key of one plural form: the French text and a CLDR category ("one", "few", "many", "other"…).
    static QString pluralKey(const QString& french, QStringView category);
    /// The French forms of the texts that hold a count.
    static const Table& frenchForms();

    /// The Linux wording of the French texts that name something of macOS: macOS French to Linux French.
    static const Table& linuxTexts();

    /// The table file code of a language ("en", "sr", …), empty for French and Auto.
    static QString code(AppLanguage language);

    static Parsed parse(QByteArrayView fileContents, const QString& tableName);
};

} // namespace nuvrel
