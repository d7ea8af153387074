#include "app/shell/PageRegistry.h"

#include <algorithm>

namespace nuvrel {

void PageRegistry::add(Page page, QWidget* view, std::function<void()> retranslate)
{
    Q_ASSERT(!contains(page));
    m_entries.append({page, view, std::move(retranslate)});
    std::stable_sort(m_entries.begin(), m_entries.end(),
                     [](const Entry& a, const Entry& b) { return int(a.page) < int(b.page); });
}

QList<Page> PageRegistry::pages() const
{
    QList<Page> pages;
    for (const Entry& entry : m_entries)
        pages.append(entry.page);
    return pages;
}

QWidget* PageRegistry::view(Page page) const
{
    const auto found =
        std::find_if(m_entries.cbegin(), m_entries.cend(), [page](const Entry& entry) { return entry.page == page; });
    return found == m_entries.cend() ? nullptr : found->view;
}

void PageRegistry::retranslate() const
{
    for (const Entry& entry : m_entries) {
        if (entry.retranslate)
            entry.retranslate();
    }
}

} // namespace nuvrel
