#pragma once

// What the window tests check on any screen: texts cut or robbed of an "&", and screenshots saved for
// a person to look at.

#include "l10n/AppLanguage.h"
#include "l10n/LanguageStore.h"

#include <QApplication>
#include <QString>
#include <QStringList>

class QAbstractItemView;
class QWidget;

namespace nuvrel::test {

inline constexpr int windowTimeoutMs = 60'000;

QByteArray readAll(const QString& path);
QString rowText(const QAbstractItemView* view, int row);

/// Saves what `window` shows as build/<preset>/screenshots/<name>.png; `name` may hold folders.
void screenshot(QWidget& window, const QString& name);

/// Every text of a button, a check box, a tab or a menu item in which a lone "&" would be taken as a
/// keyboard mnemonic, and so lost from what the user reads.
QStringList lostAmpersands(const QWidget& window);

/// Every visible text that does not fit where it is shown: a button or a one-line label narrower than
/// its text, a wrapping label shorter than its lines.
QStringList cutTexts(const QWidget& window);

/// Every visible label whose text colour stands out from the window's background by less than the
/// contrast ratio that small text needs (4.5 to 1): a colour meant for the other scheme, for one.
QStringList faintTexts(const QWidget& window);

/// What is wrong with the way Tab walks through `window` from its focused widget: a visible control that
/// Tab never reaches, or a step back up the page (out of reading order) other than into the next column. The sidebar, a
/// column of its own, is left out of the order. Empty when nothing is.
QStringList tabOrderFaults(QWidget& window);

/// Every visible text (label, button, tab, field hint) that names a thing of macOS: none may on Linux.
QStringList macWords(const QWidget& window);

/// The texts of the visible labels, one per line.
QString labelTexts(const QWidget& widget);

/// Runs `check` with each language of the menu in force, then puts French back.
template <typename Check>
void inEveryLanguage(Check&& check)
{
    for (AppLanguage language : allAppLanguages) {
        if (language == AppLanguage::Auto)
            continue;
        LanguageStore::shared().setLanguage(language);
        QApplication::processEvents();
        check(language);
    }
    LanguageStore::shared().setLanguage(AppLanguage::Fr);
    QApplication::processEvents();
}

} // namespace nuvrel::test
