#include <memblock/collections/nameindex_internal.h>

#include <memblock/base/alloc.h>

#include <bit>
#include <cstring>
#include <utility>

namespace NKelmic {
namespace {

template <class Word>
std::uint64_t Load(char const* p)
{
    Word word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

/// Setting bit 5 folds the letters, and some other characters that equality then tells apart. The
/// top bits of a product depend on all others, so they go to where slots are chosen by.
std::uint64_t Mix(std::uint64_t hash, std::uint64_t word)
{
    constexpr std::uint64_t bit5 = 0x2020202020202020, odd = 0x9E3779B97F4A7C15;
    return __builtin_bswap64((hash ^ (word | bit5)) * odd);
}

/// Never 0. The last words overlap, so that no byte is left over.
std::uint64_t HashOf(safestring const& name)
{
    char const* const p = name.data();
    std::size_t const n = name.size();
    std::uint64_t hash = n;
    if (n >= 8) {
        for (std::size_t i = 0; i + 8 < n; i += 8)
            hash = Mix(hash, Load<std::uint64_t>(p + i));
        hash = Mix(hash, Load<std::uint64_t>(p + n - 8));
    } else if (n >= 4) {
        hash = Mix(hash, Load<std::uint32_t>(p) << 32 | Load<std::uint32_t>(p + n - 4));
    } else if (n > 0) {
        hash = Mix(hash, Load<char>(p) << 16 ^ Load<char>(p + n / 2) << 8 ^ Load<char>(p + n - 1));
    }
    return hash | 1;
}

bool SameText(safestring const& a, safestring const& b)
{
    return a.size() == b.size() && safestring_traits::compare(a.data(), b.data(), a.size()) == 0;
}

} // namespace

ContainerIterator NameIndex::Find(safestring const& name)
{
    if (!slots_ && (map_.size() < least_items || !Build(std::bit_ceil(2 * map_.size()))))
        return map_.find(name);
    Slot const* const slot = Look(HashOf(name), name);
    return slot->hash ? slot->item : map_.end();
}

void NameIndex::Added(ContainerIterator item)
{
    if (!slots_)
        return;
    if (2 * map_.size() > mask_ + 1)
        Build(2 * (mask_ + 1)); // places this one, too
    else
        Place({HashOf(item->first), item});
}

void NameIndex::Removed(ContainerIterator item) noexcept
{
    if (!slots_)
        return;
    std::size_t hole = static_cast<std::size_t>(Look(HashOf(item->first), item->first) - slots_);
    slots_[hole].hash = 0;
    // What was pushed behind the hole by it moves up, so that no search ends there too early.
    for (std::size_t i = (hole + 1) & mask_; slots_[i].hash; i = (i + 1) & mask_) {
        std::size_t const home = slots_[i].hash >> 1 & mask_;
        if (((i - home) & mask_) < ((i - hole) & mask_))
            continue;
        slots_[hole] = slots_[i];
        slots_[i].hash = 0;
        hole = i;
    }
}

void NameIndex::Drop() noexcept
{
    mb_free(std::exchange(slots_, nullptr));
}

/// False, and no index, without memory.
bool NameIndex::Build(std::size_t slot_count)
{
    Drop();
    slots_ = static_cast<Slot*>(mb_calloc(slot_count, sizeof(Slot)));
    if (!slots_)
        return false;
    mask_ = slot_count - 1;
    for (auto item = map_.begin(); item != map_.end(); ++item)
        Place({HashOf(item->first), item});
    return true;
}

void NameIndex::Place(Slot const& slot)
{
    std::size_t i = slot.hash >> 1 & mask_;
    while (slots_[i].hash)
        i = (i + 1) & mask_;
    slots_[i] = slot;
}

/// The slot of a name, or the free one where it would stand.
NameIndex::Slot* NameIndex::Look(std::uint64_t hash, safestring const& name) const
{
    std::size_t i = hash >> 1 & mask_;
    while (slots_[i].hash && !(slots_[i].hash == hash && SameText(slots_[i].item->first, name)))
        i = (i + 1) & mask_;
    return &slots_[i];
}

} // namespace NKelmic
