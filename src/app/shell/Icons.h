#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

namespace nuvrel {

/// The application's line icons, drawn from SVG at the size and pixel density asked for, so they stay
/// sharp on high-density screens, and in the palette's text colour, so they suit light and dark.
class Icons final
{
public:
    Icons() = delete;

    /// The icon `name` (a file of the icons folder, without ".svg"), in the palette's colours or in `colour`.
    static QIcon icon(const QString& name, const QColor& colour = {});
};

} // namespace nuvrel
