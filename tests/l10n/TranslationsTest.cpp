#include "L10nScan.h"

#include "l10n/Cyrillic.h"
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

TEST(Translations, EveryTranslationKeepsItsPlaceholdersAndItsEdges)
{
    for (AppLanguage language : tableLanguages) {
        const Translations::Table& table = *Translations::table(language);
        for (auto it = table.cbegin(); it != table.cend(); ++it) {
            const QString where = Translations::code(language) + QStringLiteral(": ") + it.key();
            EXPECT_EQ(l10nscan::placeholderSignature(it.value()), l10nscan::placeholderSignature(it.key()))
                << qPrintable(where);
            // A piece of a longer sentence must still join its neighbours the same way.
            EXPECT_EQ(it.value().endsWith(u' '), it.key().endsWith(u' ')) << qPrintable(where);
            EXPECT_EQ(it.value().startsWith(u' '), it.key().startsWith(u' ')) << qPrintable(where);
        }
    }
}

TEST(Translations, AllTablesHoldTheSameKeys)
{
    const Translations::Table& english = *Translations::table(AppLanguage::En);
    const QList<QString> keys = english.keys();
    const QSet<QString> reference(keys.cbegin(), keys.cend());
    for (AppLanguage language : tableLanguages) {
        const QList<QString> otherKeys = Translations::table(language)->keys();
        EXPECT_EQ(QSet<QString>(otherKeys.cbegin(), otherKeys.cend()), reference)
            << qPrintable(Translations::code(language));
    }
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
