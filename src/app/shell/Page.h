#pragma once

#include <QString>

#include <array>

namespace nuvrel {

/// The window's pages, in the sidebar's order.
enum class Page { Home, Backup, Lighten, Conversations, Print, Explore, Duplicates, Space, Transfer, Vault, FilesCopy };

inline constexpr std::array allPages{Page::Home,     Page::Backup,  Page::Lighten,    Page::Conversations,
                                     Page::Print,    Page::Explore, Page::Duplicates, Page::Space,
                                     Page::Transfer, Page::Vault,   Page::FilesCopy};

/// The page's identifier ("home", "explore", "filesCopy"…).
QString identifier(Page page);
/// The sidebar title, in the language in force.
QString title(Page page);
/// The name of the page's icon among the application's icons.
QString iconName(Page page);

} // namespace nuvrel
