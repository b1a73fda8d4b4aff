#ifndef MEMBLOCK_COLLECTIONS_COLUMNSBYNAME_INTERNAL_H
#define MEMBLOCK_COLLECTIONS_COLUMNSBYNAME_INTERNAL_H

#include <memblock/collections/table.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace NKelmic {

/// Finds columns by name for lists of many: `Table::ColumnIndex` looks at one name after another.
class ColumnsByName {
public:
    explicit ColumnsByName(Table const& table) : table_(table), order_(table.ColumnCount())
    {
        std::iota(order_.begin(), order_.end(), 0);
        std::stable_sort(order_.begin(), order_.end(),
                         [&](int a, int b) { return table_.ColumnName(a) < table_.ColumnName(b); });
    }
    /// The first column of a name, or -1.
    int Find(safestring const& name) const
    {
        auto const at = std::lower_bound(
            order_.begin(), order_.end(), name,
            [&](int column, safestring const& own) { return table_.ColumnName(column) < own; });
        return at != order_.end() && table_.ColumnName(*at) == name ? *at : -1;
    }

private:
    Table const& table_;
    std::vector<int> order_; // by name
};

} // namespace NKelmic

#endif // MEMBLOCK_COLLECTIONS_COLUMNSBYNAME_INTERNAL_H
