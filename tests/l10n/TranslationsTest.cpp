#include "L10nScan.h"

#include "l10n/Cyrillic.h"
#include "l10n/Localizer.h"
#include "l10n/Translations.h"

#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

constexpr AppLanguage tableLanguages[] = {AppLanguage::En, AppLanguage::SrLatn, AppLanguage::De, AppLanguage::Es,
                                          AppLanguage::It, AppLanguage::Pt,     AppLanguage::Ru};

const QList<l10nscan::Use>& sourceTexts()
{
    static const QList<l10nscan::Use> uses = l10nscan::scanTree(QStringLiteral(NUVREL_SOURCE_DIR "/src"));
    return uses;
}

} // namespace

TEST(Translations, EveryTextOfTheCodeIsTranslatedInEveryTable)
{
    ASSERT_GT(sourceTexts().size(), 20) << "the source scan found too little; is NUVREL_SOURCE_DIR right?";
    for (AppLanguage language : tableLanguages) {
        const Translations::Table& table = *Translations::table(language);
        for (const l10nscan::Use& use : sourceTexts()) {
            if (use.plural)
                continue; // its forms are checked below
            // The text as macOS shows it, and its Linux wording when it has one.
            QStringList shown{use.text};
            if (const auto variant = Translations::linuxTexts().constFind(use.text);
                variant != Translations::linuxTexts().cend())
                shown.append(*variant);
            for (const QString& text : shown) {
                const auto found = table.constFind(text);
                if (found == table.cend()) {
                    ADD_FAILURE() << qPrintable(Translations::code(language)) << " lacks \"" << qPrintable(text)
                                  << "\" used at " << qPrintable(use.file) << ':' << use.line;
                } else {
                    EXPECT_FALSE(found->trimmed().isEmpty()) << qPrintable(text);
                }
            }
        }
    }
}

TEST(Translations, NoTextShownOnLinuxNamesAMacThing)
{
    QSet<QString> used;
    for (const l10nscan::Use& use : sourceTexts())
        used.insert(use.text);
    const Translations::Table& variants = Translations::linuxTexts();
    for (auto it = variants.cbegin(); it != variants.cend(); ++it) {
        EXPECT_TRUE(used.contains(it.key()))
            << "a Linux wording for a text the code no longer has: " << qPrintable(it.key());
        EXPECT_EQ(l10nscan::placeholderSignature(it.value()), l10nscan::placeholderSignature(it.key()))
            << qPrintable(it.key());
    }
    // Names of macOS things, in any language (they stay in Latin letters in Serbian Cyrillic too).
    static const QRegularExpression macWords(QStringLiteral("\\b(Finder|Mac|macOS|Touch ID|Cmd)\\b|⌘"));
    for (const l10nscan::Use& use : sourceTexts()) {
        const QString linux = variants.value(use.text, use.text);
        EXPECT_FALSE(macWords.match(linux).hasMatch()) << "fr: " << qPrintable(linux);
        for (AppLanguage language : tableLanguages) {
            const QString translated = Translations::table(language)->value(linux);
            EXPECT_FALSE(macWords.match(translated).hasMatch())
                << qPrintable(Translations::code(language)) << ": " << qPrintable(translated);
        }
        const QString cyrillic = Cyrillic::convert(Translations::table(AppLanguage::SrLatn)->value(linux));
        EXPECT_FALSE(macWords.match(cyrillic).hasMatch()) << qPrintable(cyrillic);
    }
}

TEST(Translations, EveryPluralTextHasEveryFormItsLanguageNeeds)
{
    // French included: its forms are a table of their own.
    QList<std::pair<AppLanguage, const Translations::Table*>> tables{{AppLanguage::Fr, &Translations::frenchForms()}};
    for (AppLanguage language : tableLanguages)
        tables.append({language, Translations::table(language)});
    for (const l10nscan::Use& use : sourceTexts()) {
        if (!use.plural)
            continue;
        const QString shown = Translations::linuxTexts().value(use.text, use.text);
        // As many arguments as the text has placeholders, the count first.
        const QStringList arguments{QStringLiteral("7"), QStringLiteral("<why>"), QStringLiteral("<more>")};
        for (const auto& [language, table] : std::as_const(tables)) {
            const QStringList categories = Localizer::pluralCategories(language);
            ASSERT_TRUE(categories.contains(QStringLiteral("one"))) << qPrintable(Translations::code(language));
            for (const QString& category : categories) {
                const QString key = Translations::pluralKey(shown, category);
                const auto form = table->constFind(key);
                if (form == table->cend()) {
                    ADD_FAILURE() << qPrintable(Translations::code(language)) << " (fr when empty) lacks \""
                                  << qPrintable(key) << "\" used at " << qPrintable(use.file) << ':' << use.line;
                    continue;
                }
                EXPECT_EQ(l10nscan::placeholderSignature(*form), l10nscan::placeholderSignature(shown))
                    << qPrintable(key);
                const QString filled = Localizer::fill(*form, arguments);
                EXPECT_FALSE(filled.contains(QStringLiteral("%@"))) << qPrintable(filled);
                EXPECT_TRUE(filled.contains(u'7')) << "the count is shown: " << qPrintable(filled);
                EXPECT_FALSE(form->contains(QStringLiteral("(s)"))) << qPrintable(*form);
            }
        }
    }
}

TEST(Translations, PluralCategoriesFollowEachLanguagesRules)
{
    EXPECT_EQ(Localizer::pluralCategories(AppLanguage::En),
              (QStringList{QStringLiteral("one"), QStringLiteral("other")}));
    EXPECT_EQ(
        Localizer::pluralCategories(AppLanguage::Ru),
        (QStringList{QStringLiteral("one"), QStringLiteral("few"), QStringLiteral("many"), QStringLiteral("other")}));
    EXPECT_EQ(Localizer::pluralCategory(0, AppLanguage::Fr), QStringLiteral("one")); // "0 fichier"
    EXPECT_EQ(Localizer::pluralCategory(2, AppLanguage::Fr), QStringLiteral("other"));
    EXPECT_EQ(Localizer::pluralCategory(1'000'000, AppLanguage::Fr), QStringLiteral("many")); // "de fichiers"
    EXPECT_EQ(Localizer::pluralCategory(0, AppLanguage::En), QStringLiteral("other"));
    EXPECT_EQ(Localizer::pluralCategory(0, AppLanguage::Pt), QStringLiteral("one")); // Brazil, unlike Portugal
    EXPECT_EQ(Localizer::pluralCategory(21, AppLanguage::Ru), QStringLiteral("one"));
    EXPECT_EQ(Localizer::pluralCategory(22, AppLanguage::Ru), QStringLiteral("few"));
    EXPECT_EQ(Localizer::pluralCategory(11, AppLanguage::Ru), QStringLiteral("many"));
    EXPECT_EQ(Localizer::pluralCategory(3, AppLanguage::SrCyrl), QStringLiteral("few"));
}

// A key without its plural category: the text of the code it belongs to.
QString baseKey(const QString& key)
{
    static const QRegularExpression category(QStringLiteral("\\[(zero|one|two|few|many|other)\\]$"));
    return QString(key).remove(category);
}

TEST(Translations, EveryTranslationKeepsItsPlaceholdersAndItsEdges)
{
    for (AppLanguage language : tableLanguages) {
        const Translations::Table& table = *Translations::table(language);
        for (auto it = table.cbegin(); it != table.cend(); ++it) {
            const QString key = baseKey(it.key());
            const QString where = Translations::code(language) + QStringLiteral(": ") + it.key();
            EXPECT_EQ(l10nscan::placeholderSignature(it.value()), l10nscan::placeholderSignature(key))
                << qPrintable(where);
            // A piece of a longer sentence must still join its neighbours the same way.
            EXPECT_EQ(it.value().endsWith(u' '), key.endsWith(u' ')) << qPrintable(where);
            EXPECT_EQ(it.value().startsWith(u' '), key.startsWith(u' ')) << qPrintable(where);
        }
    }
}

TEST(Translations, AllTablesHoldTheSameTexts)
{
    // The same texts; a text that holds a count has as many forms as its language has categories.
    const auto texts = [](const Translations::Table& table) {
        QSet<QString> keys;
        for (auto it = table.cbegin(); it != table.cend(); ++it)
            keys.insert(baseKey(it.key()));
        return keys;
    };
    const QSet<QString> reference = texts(*Translations::table(AppLanguage::En));
    for (AppLanguage language : tableLanguages)
        EXPECT_EQ(texts(*Translations::table(language)), reference) << qPrintable(Translations::code(language));
}

TEST(Translations, SerbianSurvivesTheCyrillicConversion)
{
    static const QRegularExpression word(QStringLiteral("[\\p{L}%@$]+"));
    const Translations::Table& serbian = *Translations::table(AppLanguage::SrLatn);
    for (auto it = serbian.cbegin(); it != serbian.cend(); ++it) {
        const QString cyrillic = Cyrillic::convert(it.value());
        EXPECT_EQ(l10nscan::placeholderSignature(cyrillic), l10nscan::placeholderSignature(it.value()))
            << qPrintable(it.key());
        for (const QRegularExpressionMatch& match : word.globalMatch(it.value())) {
            if (Cyrillic::keeps(match.capturedView())) {
                EXPECT_TRUE(cyrillic.contains(match.captured())) << qPrintable(it.value());
            }
        }
    }
    EXPECT_EQ(Translations::table(AppLanguage::SrCyrl), Translations::table(AppLanguage::SrLatn));
    EXPECT_EQ(Translations::table(AppLanguage::Fr), nullptr);
    EXPECT_EQ(Translations::table(AppLanguage::Auto), nullptr);
}

TEST(Translations, ParserReadsEscapesAndRejectsBrokenTables)
{
    const auto parse = [](const char* text) { return Translations::parse(QByteArrayView(text), QStringLiteral("xx")); };
    const Translations::Parsed good =
        parse("# comment\n\nUn\\tdeux\\nlignes\tOne\\ttwo\\nlines\r\nBarre \\\\\tBackslash \\\\\nfin \tend \n");
    ASSERT_TRUE(good.error.isEmpty()) << qPrintable(good.error);
    EXPECT_EQ(good.table.size(), 3);
    EXPECT_EQ(good.table.value(QStringLiteral("Un\tdeux\nlignes")), QStringLiteral("One\ttwo\nlines"));
    EXPECT_EQ(good.table.value(QStringLiteral("Barre \\")), QStringLiteral("Backslash \\"));
    EXPECT_EQ(good.table.value(QStringLiteral("fin ")), QStringLiteral("end ")); // edge spaces are kept

    const Translations::Parsed duplicate = parse("Oui\tYes\nNon\tNo\nOui\tYeah\n");
    EXPECT_TRUE(duplicate.error.contains(QStringLiteral("\"Oui\""))) << qPrintable(duplicate.error);
    EXPECT_TRUE(duplicate.error.contains(QStringLiteral("xx"))) << qPrintable(duplicate.error);
    EXPECT_TRUE(duplicate.error.contains(QStringLiteral("line 3"))) << qPrintable(duplicate.error);

    for (const char* broken : {"no tab here\n", "\tempty key\n", "a\tb\tc\n", "bad \\q escape\tx\n", "trailing\tx\\\n"})
        EXPECT_FALSE(parse(broken).error.isEmpty()) << broken;
}

TEST(Translations, SourceScannerFindsOnlyRealLocalisedLiterals)
{
    const QString source = QStringLiteral(R"cpp(
        // L("in a comment") is not a use
        /* nor L("in a block") */
        auto a = L("Un");
        auto b = L ( "Deux " "morceaux", x);
        auto c = URL("pas ceci");
        auto d = "L(\"dans une chaîne\")";
        char e = '"'; auto f = L("Après \"guillemets\"\n");
        auto g = L(variable);
        auto t = 15'000; auto u = u8'x'; auto v = 0xFF'FF; auto w = u'"'; auto y = L'"';
        auto h = QString::fromUtf8(LKey("Trois"));
        auto i = LKeyboard("non");
    )cpp");
    const QList<l10nscan::Use> uses = l10nscan::scanSource(source);
    QStringList texts;
    for (const l10nscan::Use& use : uses)
        texts.append(use.text);
    EXPECT_EQ(texts, (QStringList{QStringLiteral("Un"), QStringLiteral("Deux morceaux"),
                                  QStringLiteral("Après \"guillemets\"\n"), QStringLiteral("Trois")}));
    EXPECT_EQ(uses.value(1).line, 5);
}
