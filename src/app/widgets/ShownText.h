#pragma once

#include <QString>

namespace nuvrel {

/// A text for a button, a check box, a tab or a menu item, shown as it is written. These take a lone
/// "&" as the mark of a keyboard mnemonic, and "Photos & Videos" would read "Photos _Videos"; no text of
/// ours means one, so every "&" is doubled, which they show as one.
inline QString shownText(QString text)
{
    return text.replace(u'&', QStringLiteral("&&"));
}

} // namespace nuvrel
