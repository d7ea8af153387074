#include "l10n/Cyrillic.h"

#include <gtest/gtest.h>

using nuvrel::Cyrillic;

TEST(Cyrillic, ConvertsLettersAndDigraphsKeepingCase)
{
    EXPECT_EQ(Cyrillic::convert(u"Ljubljana"), QStringLiteral("Љубљана"));
    EXPECT_EQ(Cyrillic::convert(u"LJUBAV NJIVA DŽEP"), QStringLiteral("ЉУБАВ ЊИВА ЏЕП"));
    EXPECT_EQ(Cyrillic::convert(u"lJ"), QStringLiteral("љ")); // the first letter decides the case
    EXPECT_EQ(Cyrillic::convert(u"čćđšž ČĆĐŠŽ"), QStringLiteral("чћђшж ЧЋЂШЖ"));
    // Letters outside the Serbian alphabet, digits and punctuation are copied.
    EXPECT_EQ(Cyrillic::convert(u"x-y, 42 w? q!"), QStringLiteral("x-y, 42 w? q!"));
    // "nj" inside a word, not only at its start; "dz" without the caron is two letters.
    EXPECT_EQ(Cyrillic::convert(u"konj dzeta"), QStringLiteral("коњ дзета"));
}

TEST(Cyrillic, KeepsProductWordsAndPlaceholders)
{
    EXPECT_EQ(Cyrillic::convert(u"Otvori WhatsApp na iPhone-u"), QStringLiteral("Отвори WhatsApp на iPhone-у"));
    EXPECT_EQ(Cyrillic::convert(u"IPHONE i MacOS"), QStringLiteral("IPHONE и MacOS")); // compared in lower case
    EXPECT_EQ(Cyrillic::convert(u"Wi-Fi mreža"), QStringLiteral("Wi-Fi мрежа"));
    EXPECT_EQ(Cyrillic::convert(u"%@ od %@"), QStringLiteral("%@ од %@"));
    EXPECT_EQ(Cyrillic::convert(u"%2$@ pa %1$@"), QStringLiteral("%2$@ па %1$@"));
    // A word glued to a placeholder stays as it is, rather than half converted.
    EXPECT_EQ(Cyrillic::convert(u"fajl%@"), QStringLiteral("fajl%@"));
    EXPECT_EQ(Cyrillic::convert(u""), QString());
    // The words of the Linux texts.
    EXPECT_EQ(Cyrillic::convert(u"GNOME Keyring ili KWallet, Ctrl+V, idevicebackup2 backup (libimobiledevice-utils)"),
              QStringLiteral("GNOME Keyring или KWallet, Ctrl+V, idevicebackup2 backup (libimobiledevice-utils)"));
    EXPECT_TRUE(Cyrillic::keeps(u"AirDrop"));
    EXPECT_FALSE(Cyrillic::keeps(u"lozinka"));
}
