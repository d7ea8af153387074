// Lists the localised texts of the sources that a translation table lacks, and the table entries
// that no source uses. Run it after adding or removing texts: nuvrel-l10n-audit [--unused] [source folder]

#include "L10nScan.h"

#include "l10n/Localizer.h"
#include "l10n/Translations.h"

#include <QCoreApplication>
#include <QSet>
#include <QTextStream>

using namespace nuvrel;

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    const bool listUnused = arguments.removeAll(QStringLiteral("--unused")) > 0;
    const QString sources = arguments.value(0, QStringLiteral(NUVREL_SOURCE_DIR "/src"));
    QTextStream out(stdout);

    const QList<l10nscan::Use> uses = l10nscan::scanTree(sources);
    QSet<QString> used;
    for (const l10nscan::Use& use : uses) {
        for (const QString& text : {use.text, Translations::linuxTexts().value(use.text, use.text)}) {
            used.insert(text);
            for (const char16_t* category : {u"zero", u"one", u"two", u"few", u"many", u"other"})
                used.insert(Translations::pluralKey(text, category));
        }
    }

    int missing = 0;
    for (AppLanguage language : {AppLanguage::En, AppLanguage::SrLatn, AppLanguage::De, AppLanguage::Es,
                                 AppLanguage::It, AppLanguage::Pt, AppLanguage::Ru}) {
        const Translations::Table& table = *Translations::table(language);
        const QString code = Translations::code(language);
        for (const l10nscan::Use& use : uses) {
            // The text as macOS shows it, and its Linux wording when it has one.
            for (const QString& text : {use.text, Translations::linuxTexts().value(use.text)}) {
                if (use.plural && !text.isEmpty()) {
                    for (const QString& category : Localizer::pluralCategories(language)) {
                        if (!table.contains(Translations::pluralKey(text, category))) {
                            out << code << ": missing \"" << Translations::pluralKey(text, category) << "\" ("
                                << use.file << ':' << use.line << ")\n";
                            ++missing;
                        }
                    }
                    continue;
                }
                if (!text.isEmpty() && !table.contains(text)) {
                    out << code << ": missing \"" << text << "\" (" << use.file << ':' << use.line << ")\n";
                    ++missing;
                }
            }
        }
        QStringList unused;
        for (auto it = table.cbegin(); it != table.cend(); ++it) {
            if (!used.contains(it.key()))
                unused.append(it.key());
        }
        unused.sort();
        out << code << ": " << table.size() << " entries, " << unused.size() << " not used by the code yet\n";
        if (listUnused) {
            for (const QString& key : unused)
                out << "  " << key << '\n';
        }
    }
    out << uses.size() << " localised literals in " << sources << ", " << missing << " missing translations\n";
    return missing == 0 ? 0 : 1;
}
