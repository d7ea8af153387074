#include "app/shell/WindowStyler.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace nuvrel {

namespace {

bool g_dark = false;

#ifndef Q_OS_MACOS
bool desktopPrefersDark(const QApplication& app, Appearance::Scheme scheme)
{
    // The palette the platform gave, read before ours replaces it.
    static const bool platformPaletteIsDark = app.palette().color(QPalette::Window).lightness() < 128;
    const QByteArray forced = qgetenv("NUVREL_THEME").toLower();
    if (forced == "dark")
        return true;
    if (forced == "light")
        return false;
    // The desktop portal's choice; without one, GTK themes name theirs, and some desktops hand
    // theirs to Qt's palette.
    if (scheme != Appearance::Scheme::NoPreference)
        return scheme == Appearance::Scheme::Dark;
    if (qgetenv("GTK_THEME").toLower().contains("dark"))
        return true;
    return platformPaletteIsDark;
}

QPalette lightPalette()
{
    QPalette p;
    p.setColor(QPalette::Window, QColor(0xF5, 0xF6, 0xF8));
    p.setColor(QPalette::WindowText, QColor(0x1F, 0x23, 0x28));
    p.setColor(QPalette::Base, Qt::white);
    p.setColor(QPalette::AlternateBase, QColor(0xF0, 0xF2, 0xF5));
    p.setColor(QPalette::Text, QColor(0x1F, 0x23, 0x28));
    p.setColor(QPalette::PlaceholderText, QColor(0x80, 0x86, 0x8F));
    p.setColor(QPalette::Button, QColor(0xFF, 0xFF, 0xFF));
    p.setColor(QPalette::ButtonText, QColor(0x1F, 0x23, 0x28));
    p.setColor(QPalette::Mid, QColor(0xD0, 0xD4, 0xDA));
    p.setColor(QPalette::Midlight, QColor(0xE4, 0xE7, 0xEB));
    p.setColor(QPalette::Dark, QColor(0xA0, 0xA6, 0xAE));
    p.setColor(QPalette::Highlight, WindowStyler::accent());
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, WindowStyler::accent());
    p.setColor(QPalette::ToolTipBase, QColor(0x1F, 0x23, 0x28));
    p.setColor(QPalette::ToolTipText, Qt::white);
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0xA0, 0xA6, 0xAE));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0xA0, 0xA6, 0xAE));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0xA0, 0xA6, 0xAE));
    return p;
}

QPalette darkPalette()
{
    QPalette p;
    p.setColor(QPalette::Window, QColor(0x1E, 0x20, 0x24));
    p.setColor(QPalette::WindowText, QColor(0xE6, 0xE8, 0xEB));
    p.setColor(QPalette::Base, QColor(0x26, 0x29, 0x2E));
    p.setColor(QPalette::AlternateBase, QColor(0x2C, 0x30, 0x36));
    p.setColor(QPalette::Text, QColor(0xE6, 0xE8, 0xEB));
    p.setColor(QPalette::PlaceholderText, QColor(0x8A, 0x90, 0x99));
    p.setColor(QPalette::Button, QColor(0x31, 0x35, 0x3B));
    p.setColor(QPalette::ButtonText, QColor(0xE6, 0xE8, 0xEB));
    p.setColor(QPalette::Mid, QColor(0x44, 0x49, 0x50));
    p.setColor(QPalette::Midlight, QColor(0x3A, 0x3E, 0x45));
    p.setColor(QPalette::Dark, QColor(0x15, 0x17, 0x1A));
    p.setColor(QPalette::Light, QColor(0x50, 0x55, 0x5D));
    p.setColor(QPalette::Highlight, WindowStyler::accent());
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x7A, 0xA7, 0xFF));
    p.setColor(QPalette::ToolTipBase, QColor(0xE6, 0xE8, 0xEB));
    p.setColor(QPalette::ToolTipText, QColor(0x1E, 0x20, 0x24));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x6A, 0x70, 0x78));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x6A, 0x70, 0x78));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x6A, 0x70, 0x78));
    return p;
}
#endif

// Object names carry the roles: "sidebar", "pageTitle", "card", "notice"…; a "tone" property colours
// a notice as a success or a failure, in the colours of the scheme in force; lists whose rows are
// actions (a backup, a category, a conversation) say so with the "rowsAreActions" property and answer
// one click, as their texts promise ("Clique sur une sauvegarde"), and a double click only once.
QString styleSheet(bool dark)
{
    const QString sidebar = dark ? QStringLiteral("#181A1E") : QStringLiteral("#ECEEF1");
    const QString hover = dark ? QStringLiteral("#2A2E34") : QStringLiteral("#E0E3E8");
    const QString card = dark ? QStringLiteral("#26292E") : QStringLiteral("#FFFFFF");
    const QString border = dark ? QStringLiteral("#3A3E45") : QStringLiteral("#DDE1E6");
    const QString muted = dark ? QStringLiteral("#9AA0A8") : QStringLiteral("#5F6670");
    const QString accentHover = dark ? QStringLiteral("#3B76F0") : QStringLiteral("#1D4FD8");
    const QString focusRing = dark ? QStringLiteral("#A8C4FF") : QStringLiteral("#93B4F8");
    return QStringLiteral(R"(
QWidget#sidebarPane, QListWidget#sidebar { background: %1; border: none; outline: 0; }
QListWidget#sidebar { padding: 10px 8px; }
QListWidget#sidebar::item { padding: 0 8px; border-radius: 7px; }
QToolButton#languageButton { padding: 6px 10px; margin-left: 8px; }
QListWidget#sidebar::item:hover { background: %2; }
QListWidget#sidebar::item:selected { background: %6; color: white; }
QListWidget#sidebar::item:selected:focus { border: 2px solid %8; }
QAbstractItemView[rowsAreActions="true"] { activate-on-singleclick: 1; }
QLabel#pageTitle { font-size: 20pt; font-weight: 600; }
QLabel#sectionTitle { font-size: 13pt; font-weight: 600; }
QLabel#muted { color: %5; }
QFrame#card { background: %3; border: 1px solid %4; border-radius: 10px; }
QPushButton#card { background: %3; border: 1px solid %4; border-radius: 10px; padding: 0; text-align: left; }
QPushButton#card:hover, QPushButton#card:focus { border: 1px solid %6; }
QToolButton#languageButton::menu-indicator { image: none; }
QPushButton#primary { background: %6; color: white; border: 1px solid %6; font-weight: 600; padding: 5px 14px;
                      border-radius: 6px; }
QPushButton#primary:hover { background: %7; border-color: %7; }
QPushButton#primary:focus { border: 2px solid %8; padding: 4px 13px; }
QPushButton#primary:disabled { background: %4; border-color: %4; }
QPushButton#link { border: none; background: transparent; color: %6; padding: 4px 2px; text-align: left; }
QPushButton#link:hover, QPushButton#link:focus { text-decoration: underline; }
QPushButton#link:disabled { color: palette(window-text); font-weight: 600; }
QFrame#dropZone { background: %3; border: 2px dashed %4; border-radius: 12px; }
QFrame#dropZone[highlighted="true"] { border: 2px solid %6; }
QPushButton[target="true"]:checked { border: 2px solid %6; font-weight: 600; }
QFrame#dupTile { border: 1px solid %4; border-radius: 8px; }
QFrame#dupTile[marked="true"] { border: 2px solid %10; }
QLabel#command { font-family: "DejaVu Sans Mono", "Menlo", monospace; border: 1px solid %4; border-radius: 6px;
                 padding: 6px 8px; }
QLabel#keepBadge { color: %9; border: 1px solid %9; border-radius: 4px; padding: 1px 6px; font-weight: 600; }
QLabel[tone="success"] { color: %9; }
QLabel[tone="error"] { color: %10; }
)")
        .arg(sidebar, hover, card, border, muted, WindowStyler::accent().name(), accentHover, focusRing,
             WindowStyler::successColour().name(), WindowStyler::errorColour().name());
}

// Fusion's own controls, drawn flatter to match the cards; the native style of macOS keeps its own.
[[maybe_unused]] QString fusionStyleSheet(bool dark)
{
    const QString button = dark ? QStringLiteral("#31353B") : QStringLiteral("#FFFFFF");
    const QString hover = dark ? QStringLiteral("#3A3E45") : QStringLiteral("#F0F2F5");
    const QString pressed = dark ? QStringLiteral("#2A2E34") : QStringLiteral("#E4E7EB");
    const QString border = dark ? QStringLiteral("#4A4F57") : QStringLiteral("#CDD2D8");
    return QStringLiteral(R"(
QPushButton { background: %1; border: 1px solid %4; padding: 5px 14px; border-radius: 6px; }
QPushButton:hover { background: %2; }
QPushButton:pressed { background: %3; }
QPushButton:focus { border: 1px solid %5; }
QTabWidget::pane { border: 1px solid %4; border-radius: 8px; top: -1px; }
QLineEdit { padding: 5px 8px; border-radius: 6px; border: 1px solid %4; background: palette(base); }
QLineEdit:focus { border: 1px solid %5; }
)")
        .arg(button, hover, pressed, border, WindowStyler::accent().name());
}

} // namespace

QColor WindowStyler::accent()
{
    return QColor(0x25, 0x63, 0xEB);
}

QColor WindowStyler::successColour()
{
    return g_dark ? QColor(0x4A, 0xDE, 0x80) : QColor(0x15, 0x80, 0x3D);
}

QColor WindowStyler::errorColour()
{
    return g_dark ? QColor(0xF8, 0x71, 0x71) : QColor(0xB9, 0x1C, 0x1C);
}

bool WindowStyler::isDark()
{
    return g_dark;
}

void WindowStyler::follow(QApplication& app, Appearance& appearance)
{
    apply(app, appearance.scheme());
    appearance.watch([&app, &appearance] { apply(app, appearance.scheme()); });
}

void WindowStyler::apply(QApplication& app, Appearance::Scheme scheme)
{
#ifdef Q_OS_MACOS
    // The native style already follows light and dark; only the page rules are ours.
    Q_UNUSED(scheme);
    g_dark = app.palette().color(QPalette::Window).lightness() < 128;
#else
    g_dark = desktopPrefersDark(app, scheme);
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    app.setPalette(g_dark ? darkPalette() : lightPalette());
#endif
#ifdef Q_OS_MACOS
    app.setStyleSheet(styleSheet(g_dark));
#else
    // The generic rules first: the roles' rules (primary, link…) override them.
    app.setStyleSheet(fusionStyleSheet(g_dark) + styleSheet(g_dark));
#endif
}

} // namespace nuvrel
