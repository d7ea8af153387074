#include "l10n/Translations.h"

#include <QFile>

namespace nuvrel {

namespace {

bool unescape(QStringView field, QString& out)
{
    out.clear();
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] != u'\\') {
            out.append(field[i]);
            continue;
        }
        if (++i == field.size())
            return false;
        switch (field[i].unicode()) {
        case u'n': out.append(u'\n'); break;
        case u't': out.append(u'\t'); break;
        case u'\\': out.append(u'\\'); break;
        default: return false;
        }
    }
    return true;
}

Translations::Table load(const QString& code)
{
    QFile file(QStringLiteral(":/l10n/%1.tsv").arg(code));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("Translation table %s is missing from the resources", qPrintable(code));
    Translations::Parsed parsed = Translations::parse(file.readAll(), code);
    if (!parsed.error.isEmpty())
        qFatal("%s", qPrintable(parsed.error));
    return std::move(parsed.table);
}

} // namespace

QString Translations::code(AppLanguage language)
{
    switch (language) {
    case AppLanguage::Auto:
    case AppLanguage::Fr: return {};
    case AppLanguage::SrLatn:
    case AppLanguage::SrCyrl: return QStringLiteral("sr");
    default: return identifier(language);
    }
}

const Translations::Table* Translations::table(AppLanguage language)
{
    // Each table is built once, by whichever thread asks first.
    static const Table en = load(QStringLiteral("en"));
    switch (language) {
    case AppLanguage::Auto:
    case AppLanguage::Fr: return nullptr;
    case AppLanguage::En: return &en;
    case AppLanguage::SrLatn:
    case AppLanguage::SrCyrl: {
        static const Table sr = load(QStringLiteral("sr"));
        return &sr;
    }
    case AppLanguage::De: {
        static const Table de = load(QStringLiteral("de"));
        return &de;
    }
    case AppLanguage::Es: {
        static const Table es = load(QStringLiteral("es"));
        return &es;
    }
    case AppLanguage::It: {
        static const Table it = load(QStringLiteral("it"));
        return &it;
    }
    case AppLanguage::Pt: {
        static const Table pt = load(QStringLiteral("pt"));
        return &pt;
    }
    case AppLanguage::Ru: {
        static const Table ru = load(QStringLiteral("ru"));
        return &ru;
    }
    }
    return nullptr;
}

QString Translations::pluralKey(const QString& french, QStringView category)
{
    return french + u'[' + category + u']';
}

const Translations::Table& Translations::frenchForms()
{
    static const Table forms = load(QStringLiteral("fr"));
    return forms;
}

const Translations::Table& Translations::linuxTexts()
{
    static const Table texts = load(QStringLiteral("linux"));
    return texts;
}

Translations::Parsed Translations::parse(QByteArrayView fileContents, const QString& tableName)
{
    Parsed parsed;
    const QString text = QString::fromUtf8(fileContents);
    int lineNumber = 0;
    QString key;
    QString value;
    for (QStringView line : QStringView(text).split(u'\n')) {
        ++lineNumber;
        if (line.endsWith(u'\r'))
            line.chop(1);
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        const qsizetype tab = line.indexOf(u'\t');
        if (tab <= 0 || line.indexOf(u'\t', tab + 1) != -1 || !unescape(line.first(tab), key) ||
            !unescape(line.sliced(tab + 1), value)) {
            parsed.error = QStringLiteral("Translation table %1, line %2: expected \"French<TAB>translation\"")
                               .arg(tableName)
                               .arg(lineNumber);
            return parsed;
        }
        if (parsed.table.contains(key)) {
            parsed.error = QStringLiteral("Translation table %1 has the key \"%2\" twice (line %3)")
                               .arg(tableName, key)
                               .arg(lineNumber);
            return parsed;
        }
        parsed.table.insert(key, value);
    }
    return parsed;
}

} // namespace nuvrel
