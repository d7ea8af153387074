// The recovery sheet, read back by poppler's pdfinfo and pdftotext: an implementation of PDF that is
// not the one that wrote it.

#include "sessions/backup/PasswordSheet.h"

#include "l10n/LanguageStore.h"
#include "support/PdfTools.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

// Text extraction breaks lines where the layout wrapped them: compare with spaces folded.
QString folded(QString text)
{
    return text.replace(QRegularExpression(QStringLiteral("\\s+")), QStringLiteral(" "));
}

} // namespace

TEST(PasswordSheet, OnePageWithEveryTextInTheLanguageInForce)
{
    LanguageStore& store = LanguageStore::shared();
    const AppLanguage saved = store.language();
    struct Expected
    {
        AppLanguage language;
        QString title;
        QString warningStart;
    };
    for (const Expected& expected :
         {Expected{AppLanguage::Fr, QStringLiteral("Nuvrel : fiche de secours"),
                   QStringLiteral("Sans ce mot de passe")},
          Expected{AppLanguage::Ru, QStringLiteral("Nuvrel"), QStringLiteral("Без этого пароля")}}) {
        store.setLanguageForThisRun(expected.language);
        const QString password = QStringLiteral("Ma-Phrase_de passe 0Oo1lI|€ ") + QString(120, u'x');
        const QString path = PasswordSheet::make(QStringLiteral("iPhone de Camille"), password);
        ASSERT_FALSE(path.isEmpty());
        EXPECT_EQ(QFileInfo(path).absolutePath(), QDir(QDir::tempPath()).absolutePath());
        EXPECT_TRUE(QFileInfo(path).fileName().startsWith(QStringLiteral("Nuvrel-fiche-")));
        EXPECT_TRUE(path.endsWith(QStringLiteral(".pdf")));

        EXPECT_EQ(test::pdfPageCount(path), 1);
        const QString text = folded(test::pdfText(path));
        EXPECT_TRUE(text.contains(expected.title)) << qPrintable(text);
        EXPECT_TRUE(text.contains(QStringLiteral("iPhone de Camille"))) << qPrintable(text);
        EXPECT_TRUE(text.contains(expected.warningStart)) << qPrintable(text);
        // The password, even a long one that wraps, is all there.
        EXPECT_TRUE(folded(text).remove(u' ').contains(QString(password).remove(u' '))) << qPrintable(text);
        QFile::remove(path);
    }
    store.setLanguageForThisRun(saved);
}
