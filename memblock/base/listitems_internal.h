#ifndef MEMBLOCK_BASE_LISTITEMS_INTERNAL_H
#define MEMBLOCK_BASE_LISTITEMS_INTERNAL_H

#include <memblock/base/safestring.h>

#include <cstring>
#include <vector>

namespace Ntarnwick {

/// The items of a list, in one pass over its text: one by its position costs a pass each.
inline std::vector<safestring> ItemsOf(safestringlist const& list)
{
    std::vector<safestring> items;
    safestring const& text = list.Text();
    for (std::size_t from = 0; !text.empty() && from <= text.size();) {
        void const* const found =
            std::memchr(text.data() + from, list.Separator(), text.size() - from);
        std::size_t const to = found ? static_cast<char const*>(found) - text.data() : text.size();
        items.emplace_back(text, from, to - from);
        from = to + 1;
    }
    return items;
}

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_LISTITEMS_INTERNAL_H
