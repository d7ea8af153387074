#include "l10n/Localizer.h"
#include "l10n/Cyrillic.h"
#include "l10n/L.h"
#include "l10n/LanguageStore.h"

#include <QDateTime>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace nuvrel;

TEST(Localizer, ResolvesTheChoiceThenThePreferredLanguagesThenEnglish)
{
    const auto resolve = [](const QStringList& preferred) { return Localizer::resolve(AppLanguage::Auto, preferred); };
    EXPECT_EQ(resolve({QStringLiteral("nl-NL"), QStringLiteral("fr-FR")}), AppLanguage::Fr);
    EXPECT_EQ(resolve({QStringLiteral("nl-NL")}), AppLanguage::En);
    EXPECT_EQ(resolve({}), AppLanguage::En);
    EXPECT_EQ(resolve({QStringLiteral("sr-Latn-RS")}), AppLanguage::SrLatn);
    EXPECT_EQ(resolve({QStringLiteral("sr-RS")}), AppLanguage::SrCyrl);
    EXPECT_EQ(resolve({QStringLiteral("SR-LATN")}), AppLanguage::SrLatn);
    EXPECT_EQ(resolve({QStringLiteral("pt-BR"), QStringLiteral("en")}), AppLanguage::Pt);
    EXPECT_EQ(resolve({QStringLiteral("DE_ch")}), AppLanguage::De);
    EXPECT_EQ(Localizer::resolve(AppLanguage::Ru, {QStringLiteral("fr")}), AppLanguage::Ru);
}

TEST(Localizer, FillsSequentialAndNumberedPlaceholders)
{
    const auto fill = [](const char* text, const QStringList& args) {
        return Localizer::fill(QString::fromUtf8(text), args);
    };
    const QStringList ab{QStringLiteral("a"), QStringLiteral("b")};
    EXPECT_EQ(fill("%@ copiés, %@ déjà présents", {QStringLiteral("3"), QStringLiteral("5")}),
              QStringLiteral("3 copiés, 5 déjà présents"));
    EXPECT_EQ(fill("%@ copiés, %@ déjà présents", {QStringLiteral("3")}), QStringLiteral("3 copiés,  déjà présents"));
    EXPECT_EQ(fill("%2$@ / %1$@", ab), QStringLiteral("b / a"));
    EXPECT_EQ(fill("%3$@", {QStringLiteral("a")}), QStringLiteral("%3$@"));
    EXPECT_EQ(fill("%0$@", ab), QStringLiteral("%0$@"));
    // A numbered placeholder does not move the sequential counter.
    EXPECT_EQ(fill("%2$@ %@ %@", ab), QStringLiteral("b a b"));
    // Anything else after "%" is text, including a trailing "%" and digits without "$@".
    EXPECT_EQ(fill("100% %1 %1$ %", ab), QStringLiteral("100% %1 %1$ %"));
    EXPECT_EQ(fill("%99999999999999999999$@", ab), QStringLiteral("%99999999999999999999$@"));
    // Arguments are inserted verbatim, never scanned again.
    EXPECT_EQ(fill("%@ et %@", {QStringLiteral("%@"), QStringLiteral("%1$@")}), QStringLiteral("%@ et %1$@"));
    // Without arguments the template is returned untouched.
    EXPECT_EQ(Localizer::fill(u"50 % et %@", {}), QStringLiteral("50 % et %@"));
    QStringList ten;
    for (int i = 1; i <= 10; ++i)
        ten.append(QString::number(i));
    EXPECT_EQ(fill("%10$@ %1$@0", ten), QStringLiteral("10 10"));
}

TEST(Localizer, LooksUpByLanguageAndFallsBackToFrench)
{
    const QString refresh = QStringLiteral("Actualiser");
    EXPECT_EQ(Localizer::lookup(refresh, AppLanguage::Fr), std::nullopt);
    EXPECT_EQ(Localizer::lookup(refresh, AppLanguage::En), QStringLiteral("Refresh"));
    const std::optional<QString> latin = Localizer::lookup(refresh, AppLanguage::SrLatn);
    ASSERT_TRUE(latin.has_value());
    EXPECT_EQ(Localizer::lookup(refresh, AppLanguage::SrCyrl), Cyrillic::convert(*latin));
    const QString unknown = QStringLiteral("Texte qu'aucune table ne connaît");
    EXPECT_EQ(Localizer::lookup(unknown, AppLanguage::SrCyrl), std::nullopt);
    EXPECT_EQ(Localizer::translate(unknown, AppLanguage::De), unknown);
}

TEST(Localizer, ShortFormFollowsTheLanguageInForce)
{
    LanguageStore& store = LanguageStore::shared();
    const AppLanguage saved = store.language();
    store.setLanguageForThisRun(AppLanguage::Fr);
    EXPECT_EQ(L("%@ sur %@", 3, QStringLiteral("10")), QStringLiteral("3 sur 10"));
    store.setLanguageForThisRun(AppLanguage::En);
    EXPECT_EQ(L("%@ sur %@", qint64(3), 10u), QStringLiteral("3 of 10"));
    EXPECT_EQ(L("Actualiser"), QStringLiteral("Refresh"));
    store.setLanguageForThisRun(saved);
}

TEST(Localizer, DatesUseTheLanguageWithoutTheWeekday)
{
    qputenv("TZ", "UTC");
    const QDateTime date(QDate(2026, 11, 22), QTime(14, 5), QTimeZone::utc());
    const QString fr = Localizer::formatDateTime(date, Localizer::locale(AppLanguage::Fr));
    EXPECT_EQ(fr, QStringLiteral("22 novembre 2026 à 14:05")); // as the texts say: "le 22 novembre 2026 à 14:05"
    EXPECT_FALSE(fr.contains(QStringLiteral("dimanche"))) << qPrintable(fr);
    const QString en = Localizer::formatDateTime(date, Localizer::locale(AppLanguage::En));
    EXPECT_TRUE(en.startsWith(QStringLiteral("November 22, 2026 at 2:05"))) << qPrintable(en);
    EXPECT_FALSE(en.contains(QStringLiteral("Sunday"))) << qPrintable(en);
    const QString ru = Localizer::formatDateTime(date, Localizer::locale(AppLanguage::Ru));
    EXPECT_TRUE(ru.contains(QStringLiteral("ноября"))) << qPrintable(ru);
    EXPECT_FALSE(ru.contains(QStringLiteral("воскресенье"))) << qPrintable(ru);
    for (AppLanguage language : allAppLanguages) {
        const QString text = Localizer::formatDateTime(date, Localizer::locale(language));
        EXPECT_TRUE(text.contains(QStringLiteral("2026"))) << qPrintable(text);
        EXPECT_FALSE(text.startsWith(u',') || text.startsWith(u' ')) << qPrintable(text);
    }
}

TEST(Localizer, ConcurrentFirstUseGivesEveryThreadTheSameAnswers)
{
    // Background work localises its progress lines, so the lazy tables must load safely from any thread.
    std::vector<std::thread> threads;
    std::vector<QStringList> answers(8);
    for (size_t t = 0; t < answers.size(); ++t) {
        threads.emplace_back([&answers, t] {
            for (AppLanguage language : allAppLanguages)
                answers[t].append(Localizer::translate(QStringLiteral("Actualiser"), language));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const QStringList& answer : answers)
        EXPECT_EQ(answer, answers.front());
}

TEST(Localizer, TextsNamingAMacThingAreShownInTheSystemsOwnWords)
{
    const QString finder = QStringLiteral("Afficher dans le Finder");
#if defined(Q_OS_MACOS)
    EXPECT_EQ(Localizer::platformText(finder), finder);
#else
    // The Linux wording is what is shown, and what the tables translate.
    EXPECT_EQ(Localizer::platformText(finder), QStringLiteral("Afficher dans le gestionnaire de fichiers"));
    EXPECT_EQ(Localizer::translate(finder, AppLanguage::Fr),
              QStringLiteral("Afficher dans le gestionnaire de fichiers"));
    EXPECT_EQ(Localizer::translate(finder, AppLanguage::En), QStringLiteral("Show in File Manager"))
        << qPrintable(Localizer::translate(finder, AppLanguage::En));
#endif
    // A text that names nothing of a system is itself everywhere.
    EXPECT_EQ(Localizer::platformText(QStringLiteral("Actualiser")), QStringLiteral("Actualiser"));
}

TEST(Localizer, ACountTakesItsLanguagesPluralForm)
{
    const auto extracted = [](qint64 count, AppLanguage language) {
        return Localizer::fill(Localizer::translatePlural(QStringLiteral("%@ fichier(s) extraits"), count, language),
                               {QString::number(count)});
    };
    EXPECT_EQ(extracted(0, AppLanguage::Fr), QStringLiteral("0 fichier extrait"));
    EXPECT_EQ(extracted(1, AppLanguage::Fr), QStringLiteral("1 fichier extrait"));
    EXPECT_EQ(extracted(2, AppLanguage::Fr), QStringLiteral("2 fichiers extraits"));
    EXPECT_EQ(extracted(1'000'000, AppLanguage::Fr), QStringLiteral("1000000 de fichiers extraits"));
    EXPECT_EQ(extracted(1, AppLanguage::En), QStringLiteral("1 file extracted"));
    EXPECT_EQ(extracted(0, AppLanguage::En), QStringLiteral("0 files extracted"));
    // Russian: one, few and many, by the last digits.
    EXPECT_TRUE(extracted(21, AppLanguage::Ru).endsWith(QStringLiteral("21 файл")))
        << qPrintable(extracted(21, AppLanguage::Ru));
    EXPECT_TRUE(extracted(5, AppLanguage::Ru).contains(QStringLiteral("файлов")))
        << qPrintable(extracted(5, AppLanguage::Ru));
    EXPECT_TRUE(extracted(3, AppLanguage::Ru).contains(QStringLiteral("файла")))
        << qPrintable(extracted(3, AppLanguage::Ru));
    // Serbian Cyrillic: the Latin form, converted.
    EXPECT_EQ(extracted(3, AppLanguage::SrCyrl), Cyrillic::convert(extracted(3, AppLanguage::SrLatn)));
    // The one call a page makes.
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    EXPECT_EQ(LN("%@ photo(s)", 1, 1), QStringLiteral("1 photo"));
    EXPECT_EQ(LN("%@ vidéo(s)", 3, 3), QStringLiteral("3 vidéos"));
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::Auto);
}
