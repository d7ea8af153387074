#include "ground/FreeName.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;

TEST(FreeName, NumbersGoBeforeTheExtensionInEitherStyle)
{
    EXPECT_EQ(numberedName(QStringLiteral("IMG_0001.HEIC"), 2, FreeNameStyle::Parenthesised),
              QStringLiteral("IMG_0001 (2).HEIC"));
    EXPECT_EQ(numberedName(QStringLiteral("photo.jpg"), 3, FreeNameStyle::Hyphenated), QStringLiteral("photo-3.jpg"));
    EXPECT_EQ(numberedName(QStringLiteral("notes"), 2, FreeNameStyle::Parenthesised), QStringLiteral("notes (2)"));
    // Only the last dot starts the extension; a leading dot starts a hidden name.
    EXPECT_EQ(numberedName(QStringLiteral("archive.tar.gz"), 2, FreeNameStyle::Hyphenated),
              QStringLiteral("archive.tar-2.gz"));
    EXPECT_EQ(numberedName(QStringLiteral(".profile"), 2, FreeNameStyle::Parenthesised),
              QStringLiteral(".profile (2)"));
}

TEST(FreeName, SkipsTakenNamesAndDanglingLinks)
{
    QTemporaryDir folder;
    const QString wanted = folder.filePath(QStringLiteral("IMG_0001.JPG"));
    EXPECT_EQ(freeName(wanted, FreeNameStyle::Parenthesised), wanted);
    QFile(wanted).open(QIODevice::WriteOnly);
    // A link to nothing still holds its name: writing there would follow it.
    QFile::link(folder.filePath(QStringLiteral("nowhere")), folder.filePath(QStringLiteral("IMG_0001 (2).JPG")));
    EXPECT_EQ(freeName(wanted, FreeNameStyle::Parenthesised), folder.filePath(QStringLiteral("IMG_0001 (3).JPG")));
}
