#ifndef MEMBLOCK_MEASURE_CONNECT_INTERNAL_H
#define MEMBLOCK_MEASURE_CONNECT_INTERNAL_H

#include <memblock/measure/buffer_internal.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <span>

/// Connected components of runs.
namespace NKelmic::measuring {

/// A forest of nodes. The root of a tree is its lowest node, so that components are numbered by
/// their first nodes in one pass.
class Forest {
public:
    /// Throws away all trees; n nodes remain, each on its own.
    void Reset(std::size_t n)
    {
        parent_.resize(n);
        std::iota(parent_.begin(), parent_.end(), 0U);
    }
    void Join(std::uint32_t a, std::uint32_t b)
    {
        a = Root(a);
        b = Root(b);
        parent_[std::max(a, b)] = std::min(a, b);
    }
    std::uint32_t Root(std::uint32_t i)
    {
        while (parent_[i] != i)
            i = parent_[i] = parent_[parent_[i]]; // shorten the way for the next one
        return i;
    }
    /// Replace the parents by numbers of components, ascending by first node; returns their count.
    std::uint32_t Number()
    {
        std::uint32_t count = 0;
        for (std::uint32_t i = 0; i < parent_.size(); ++i) // a parent is numbered ahead of its node
            parent_[i] = parent_[i] == i ? count++ : parent_[parent_[i]];
        return count;
    }
    /// After `Number`.
    std::span<std::uint32_t const> Components() const { return {parent_.data(), parent_.size()}; }

private:
    Buffer<std::uint32_t> parent_;
};

/// The runs of a row: columns of entry and exit in turn, the nodes of which follow one another.
struct NodeRow {
    std::uint32_t const* columns;
    std::uint32_t count, first_node;

    std::uint32_t Enter(std::uint32_t i) const { return columns[2 * i]; }
    std::uint32_t Exit(std::uint32_t i) const { return columns[2 * i + 1]; }
};

/// Join the runs of neighbouring rows that touch: `reach` is 1 if a corner suffices, otherwise 0.
inline void ConnectRows(NodeRow const& above, NodeRow const& here, std::uint32_t reach,
                        Forest& forest)
{
    std::uint32_t past = 0; // runs above that end left of all that follows
    for (std::uint32_t i = 0; i < here.count; ++i) {
        std::uint64_t const from = here.Enter(i), to = std::uint64_t{here.Exit(i)} + reach;
        while (past < above.count && std::uint64_t{above.Exit(past)} + reach <= from)
            ++past;
        for (std::uint32_t k = past; k < above.count && above.Enter(k) < to; ++k)
            forest.Join(above.first_node + k, here.first_node + i);
    }
}

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_CONNECT_INTERNAL_H
