#pragma once

#include "platform/Appearance.h"

#include <QColor>

class QApplication;

namespace nuvrel {

/// The look of the window: the native style on macOS; elsewhere Fusion with a palette of our own, light
/// or dark as the desktop is, and a few rules for the sidebar, headings and cards.
class WindowStyler final
{
public:
    WindowStyler() = delete;

    /// Applies the style, before the window is built and again when the desktop's `scheme` changes.
    /// NUVREL_THEME=light|dark overrides the desktop's choice.
    static void apply(QApplication& app, Appearance::Scheme scheme = Appearance::Scheme::NoPreference);
    /// Applies the style as `appearance` says now, and again whenever it changes.
    static void follow(QApplication& app, Appearance& appearance);
    static bool isDark();
    /// The accent colour of buttons, selections and links.
    static QColor accent();
    /// Colours of the notices: success and failure.
    static QColor successColour();
    static QColor errorColour();
};

} // namespace nuvrel
