// The recovery sheet, read back by poppler's pdfinfo and pdftotext: an implementation of PDF that is
// not the one that wrote it.

#include "backup/PasswordSheet.h"

#include "l10n/LanguageStore.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(30'000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

// Text extraction breaks lines where the layout wrapped them and returns ligatures ("ﬁ") as drawn;
// compare with spaces folded and compatibility characters decomposed.
QString folded(const QString& text)
{
    return text.normalized(QString::NormalizationForm_KC)
        .replace(QRegularExpression(QStringLiteral("\\s+")), QStringLiteral(" "));
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

        EXPECT_TRUE(
            run(QStringLiteral("pdfinfo"), {path}).contains(QRegularExpression(QStringLiteral("Pages:\\s+1\\n"))));
        const QString text = folded(run(QStringLiteral("pdftotext"),
                                        {QStringLiteral("-enc"), QStringLiteral("UTF-8"), path, QStringLiteral("-")}));
        EXPECT_TRUE(text.contains(expected.title)) << qPrintable(text);
        EXPECT_TRUE(text.contains(QStringLiteral("iPhone de Camille"))) << qPrintable(text);
        EXPECT_TRUE(text.contains(expected.warningStart)) << qPrintable(text);
        // The password, even a long one that wraps, is all there.
        EXPECT_TRUE(folded(text).remove(u' ').contains(QString(password).remove(u' '))) << qPrintable(text);
        QFile::remove(path);
    }
    store.setLanguageForThisRun(saved);
}
