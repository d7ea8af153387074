#include "l10n/LanguageStore.h"

#include <QSettings>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {
class LanguageStoreTest : public testing::Test
{
protected:
    void SetUp() override { QSettings().remove(LanguageStore::settingsKey); }
    void TearDown() override { QSettings().remove(LanguageStore::settingsKey); }
};
} // namespace

TEST_F(LanguageStoreTest, MissingOrUnknownSettingMeansAutomatic)
{
    EXPECT_EQ(LanguageStore().language(), AppLanguage::Auto);
    QSettings().setValue(LanguageStore::settingsKey, QStringLiteral("klingon"));
    EXPECT_EQ(LanguageStore().language(), AppLanguage::Auto);
    QSettings().setValue(LanguageStore::settingsKey, 42);
    EXPECT_EQ(LanguageStore().language(), AppLanguage::Auto);
}

TEST_F(LanguageStoreTest, ChoiceSurvivesARestartButARunOnlyChoiceDoesNot)
{
    {
        LanguageStore store;
        int changes = 0;
        QObject::connect(&store, &LanguageStore::languageChanged, [&changes] { ++changes; });
        store.setLanguage(AppLanguage::SrCyrl);
        store.setLanguage(AppLanguage::SrCyrl); // no change, no signal
        EXPECT_EQ(changes, 1);
        store.setLanguageForThisRun(AppLanguage::De);
        EXPECT_EQ(store.language(), AppLanguage::De);
        EXPECT_EQ(changes, 2);
    }
    EXPECT_EQ(QSettings().value(LanguageStore::settingsKey).toString(), QStringLiteral("sr-Cyrl"));
    EXPECT_EQ(LanguageStore().language(), AppLanguage::SrCyrl);
}

TEST(AppLanguage, IdentifiersRoundTripAndNamesAreTheMenuOnes)
{
    for (AppLanguage language : allAppLanguages)
        EXPECT_EQ(appLanguageFromIdentifier(identifier(language)), language);
    EXPECT_EQ(appLanguageFromIdentifier(u"sr-Latn"), std::nullopt);
    EXPECT_EQ(appLanguageFromIdentifier(u"FR"), std::nullopt);
    EXPECT_EQ(appLanguageFromIdentifier(u""), std::nullopt);
    EXPECT_EQ(identifier(AppLanguage::SrLatn), QStringLiteral("sr"));
    EXPECT_EQ(displayName(AppLanguage::SrCyrl), QStringLiteral("Српски (ћирилица)"));
    EXPECT_EQ(allAppLanguages.front(), AppLanguage::Auto);
    EXPECT_EQ(allAppLanguages.back(), AppLanguage::Ru);
}
