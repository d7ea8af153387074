#include "l10n/Cyrillic.h"

#include <QSet>

namespace nuvrel {

namespace {

// Product, service and interface words that stay Latin inside Serbian sentences.
const QSet<QString>& keepSet()
{
    static const QSet<QString> words = [] {
        QSet<QString> set;
        for (const char* word :
             {"nuvrel", "cmd", "v", "mac", "macs", "macos", "ios", "iphone", "icloud", "finder", "pdf", "sha",
              "whatsapp", "telegram", "snapchat", "airdrop", "heic", "jpg", "mail", "messages", "imessage", "sms",
              "apple", "id", "usb", "url", "gb", "mb", "photos", "full", "disk", "access", "instagram", "safari",
              "keychain", "back", "up", "now", "trust", "this", "computer", "export", "chat", "history", "originals",
              "transfer", "pc", "keep", "lock", "settings", "touch", "time", "machine", "wi", "fi", "qr", "zip", "aes",
              "accessibility",
              // Words the Linux texts bring.
              "gnome", "kde", "kwallet", "keyring", "ctrl", "flatpak", "thunderbird", "idevicebackup",
              "libimobiledevice", "utils", "linux", "backup"})
            set.insert(QString::fromLatin1(word));
        return set;
    }();
    return words;
}

bool isWordCharacter(QChar c)
{
    return c.isLetter() || c == u'%' || c == u'@' || c == u'$';
}

char16_t cyrillicLetter(char16_t lower)
{
    switch (lower) {
    case u'a': return u'а';
    case u'b': return u'б';
    case u'c': return u'ц';
    case u'č': return u'ч';
    case u'ć': return u'ћ';
    case u'd': return u'д';
    case u'đ': return u'ђ';
    case u'e': return u'е';
    case u'f': return u'ф';
    case u'g': return u'г';
    case u'h': return u'х';
    case u'i': return u'и';
    case u'j': return u'ј';
    case u'k': return u'к';
    case u'l': return u'л';
    case u'm': return u'м';
    case u'n': return u'н';
    case u'o': return u'о';
    case u'p': return u'п';
    case u'r': return u'р';
    case u's': return u'с';
    case u'š': return u'ш';
    case u't': return u'т';
    case u'u': return u'у';
    case u'v': return u'в';
    case u'z': return u'з';
    case u'ž': return u'ж';
    default: return 0;
    }
}

void convertWord(QStringView word, QString& out)
{
    const qsizetype length = word.size();
    for (qsizetype i = 0; i < length; ++i) {
        const QChar c = word[i];
        const bool upper = c.isUpper();
        const char16_t lower = c.toLower().unicode();
        const char16_t nextLower = i + 1 < length ? word[i + 1].toLower().unicode() : char16_t(0);
        char16_t digraph = 0;
        if (lower == u'l' && nextLower == u'j')
            digraph = u'љ';
        else if (lower == u'n' && nextLower == u'j')
            digraph = u'њ';
        else if (lower == u'd' && nextLower == u'ž')
            digraph = u'џ';
        if (digraph) {
            out.append(upper ? QChar(digraph).toUpper() : QChar(digraph));
            ++i;
            continue;
        }
        const char16_t cyrillic = cyrillicLetter(lower);
        if (!cyrillic)
            out.append(c);
        else
            out.append(upper ? QChar(cyrillic).toUpper() : QChar(cyrillic));
    }
}

} // namespace

bool Cyrillic::keeps(QStringView word)
{
    return keepSet().contains(word.toString().toLower());
}

QString Cyrillic::convert(QStringView latin)
{
    QString out;
    out.reserve(latin.size());
    const qsizetype length = latin.size();
    qsizetype i = 0;
    while (i < length) {
        if (!isWordCharacter(latin[i])) {
            out.append(latin[i++]);
            continue;
        }
        qsizetype end = i;
        while (end < length && isWordCharacter(latin[end]))
            ++end;
        const QStringView word = latin.sliced(i, end - i);
        if (word.contains(u'%') || word.contains(u'@') || keeps(word))
            out.append(word);
        else
            convertWord(word, out);
        i = end;
    }
    return out;
}

} // namespace nuvrel
