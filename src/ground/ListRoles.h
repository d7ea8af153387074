#pragma once

#include <Qt>

namespace nuvrel {

/// Item roles the page models publish beside Qt's own, and the views' delegates read.
namespace ListRole {
/// The grey second line of a row ("12 fichier(s) · 3,4 Mo").
inline constexpr int Detail = Qt::UserRole + 100;
/// The name of the row's icon among the application's icons ("folder", "file", "pdf").
inline constexpr int IconName = Qt::UserRole + 101;
} // namespace ListRole

} // namespace nuvrel
