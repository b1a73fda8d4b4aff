#ifndef MEMBLOCK_CORE_KEYTABLE_H
#define MEMBLOCK_CORE_KEYTABLE_H

#include <memblock/core/safevalue.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace NKelmic {

/// A key that scripts see on objects of class T. The name is as scripts write it; a null
/// reader or writer means that the key can't be read or written.
template <class T>
struct Key {
    char const* name;
    DataItem (*read)(T const& object, ThrowHandlerFunc handler) = nullptr;
    /// Returns whether the value was taken; a refusal has been reported to the handler.
    bool (*write)(T& object, SafeValue const& value, ThrowHandlerFunc handler) = nullptr;
};

/// A verb that objects of class T answer.
template <class T>
struct Verb {
    char const* name;
    int argument_count; ///< the least number of arguments; `run` may read as many
    DataItem (*run)(T& object, int argc, SafeValue const* argv);
};

/// A row that is a name alone.
struct KeyName {
    char const* name;
};

/// Compare two names without regard to the case of ASCII letters.
constexpr bool SameName(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    if (a == b) // as most callers write it
        return true;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!safestring_traits::eq(a[i], b[i]))
            return false;
    return true;
}

/// A table of rows by name, made at compile time and searched without allocation and without regard
/// to letter case. Two rows of one name do not compile.
///
///     constexpr KeyTable table_keys{std::to_array<Key<Table>>({
///         {"@columncount", [](Table const& t, ThrowHandlerFunc) { return
///         DataItem(t.ColumnCount());
///         }},
///     })};
///     if (auto const* row = table_keys.Find(key); row && row->read)
///         return row->read(*this, handler);
template <class Row, std::size_t N>
class KeyTable {
public:
    consteval explicit KeyTable(std::array<Row, N> const& rows) : rows_(rows), slots_{}
    {
        for (std::size_t i = 0; i < N; ++i) {
            std::string_view const name = rows[i].name;
            if (Find(name.data(), name.size()))
                throw "two rows of one name";
            std::size_t slot = Hash(name.data(), name.size());
            while (slots_[slot])
                slot = (slot + 1) % slot_count;
            slots_[slot] = static_cast<std::uint16_t>(i + 1);
            lengths_[i] = static_cast<std::uint16_t>(name.size());
        }
    }

    constexpr Row const* Find(char const* name, std::size_t length) const
    {
        for (std::size_t slot = Hash(name, length); slots_[slot]; slot = (slot + 1) % slot_count) {
            std::size_t const i = slots_[slot] - 1u;
            if (lengths_[i] == length && SameName({name, length}, {rows_[i].name, length}))
                return &rows_[i];
        }
        return nullptr;
    }
    Row const* Find(safestring const& name) const { return Find(name.data(), name.size()); }
    Row const* Find(char const* name) const { return Find(name, std::strlen(name)); }

    constexpr auto begin() const { return rows_.begin(); }
    constexpr auto end() const { return rows_.end(); }

private:
    static constexpr std::size_t slot_count =
        std::bit_ceil(3 * N + 1); // mostly empty: quick misses

    // The length and three characters distinguish nearly all names; setting bit 5 folds the
    // letters.
    static constexpr std::size_t Hash(char const* name, std::size_t length)
    {
        if (length == 0)
            return 0;
        auto const folded = [name](std::size_t i) {
            return static_cast<std::size_t>(static_cast<unsigned char>(name[i]) | 0x20u);
        };
        std::size_t const mixed = length * 0x9E5Bu + folded(length > 1) * 0x85EBu +
                                  folded(length / 2) * 0xC2B3u + folded(length - 1) * 0x27D5u;
        return (mixed ^ mixed >> 7) % slot_count;
    }

    std::array<Row, N> rows_;
    std::array<std::uint16_t, slot_count> slots_; // row number + 1, 0 for an empty slot
    std::array<std::uint16_t, N> lengths_{};
};

/// One entry of a key list text such as "@class,%@self,,width".
struct KeyListEntry {
    std::string_view name; ///< without blanks and mark
    bool marked;           ///< '%' stood before it: of the mechanics, or empty
};

/// Call `visit(KeyListEntry)` for each entry of a key list; empty entries are passed over. A visit
/// that returns true ends the walk, which then returns true.
template <class Visit>
bool AnyKeyOfList(safestring const& list, Visit&& visit)
{
    std::string_view const text(list.data(), list.size());
    for (std::size_t from = 0; from < text.size();) {
        std::size_t const comma = std::min(text.find(',', from), text.size());
        std::string_view name = text.substr(from, comma - from);
        from = comma + 1;
        name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
        bool const marked = name.starts_with('%');
        name.remove_prefix(marked);
        if (!name.empty() && visit(KeyListEntry{name, marked}))
            return true;
    }
    return false;
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_KEYTABLE_H
