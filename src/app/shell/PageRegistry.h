#pragma once

#include "app/shell/Page.h"

#include <QList>

#include <functional>

class QWidget;

namespace nuvrel {

/// The pages this window has: each one's view, made once with the window and kept as long as it, so
/// that switching pages keeps a running task. The sidebar, the home page's cards and the keyboard
/// shortcuts are built from it: a new page is one add().
class PageRegistry final
{
public:
    /// Registers `view` for `page`; `retranslate` words its texts again after a change of language.
    void add(Page page, QWidget* view, std::function<void()> retranslate);

    /// The registered pages, in the sidebar's order.
    QList<Page> pages() const;
    bool contains(Page page) const { return view(page) != nullptr; }
    QWidget* view(Page page) const;
    void retranslate() const;

private:
    struct Entry
    {
        Page page;
        QWidget* view;
        std::function<void()> retranslate;
    };
    QList<Entry> m_entries;
};

} // namespace nuvrel
