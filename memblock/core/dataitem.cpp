#include <memblock/core/dataitem.h>

#include <memblock/base/alloc.h>
#include <memblock/core/longtext_internal.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <memory>
#include <new>

namespace NKelmic {

namespace {

/// A fixed address that no real cache has. The map in it is never made, and a constant needs
/// nothing to run at load or exit.
union AsciiMark {
    char none;
    UtfPosCache map;
    constexpr AsciiMark() : none(0) {}
    constexpr ~AsciiMark() {}
};
constexpr AsciiMark ascii_mark;

UtfPosCache* CopyCache(UtfPosCache* cache)
{
    if (!cache || cache == DataItem::c_IsAscii)
        return cache;
    void* memory = mb_malloc(sizeof(UtfPosCache));
    if (!memory)
        throw std::bad_alloc();
    try {
        return new (memory) UtfPosCache(*cache);
    } catch (...) {
        mb_free(memory);
        throw;
    }
}

/// Debugging aid. Short lengths are counted by bucket only: one step a text. Relaxed loads and
/// stores: threads may lose a count, never more.
struct TextStat {
    std::array<std::atomic<unsigned long>, 64> by_length{};
    std::atomic<unsigned long> longer{0}; // texts of 64 bytes and more
    std::atomic<unsigned long long> longer_bytes{0};
};
constinit TextStat text_stat;

template <class T>
void AddTo(std::atomic<T>& counter, T more)
{
    counter.store(counter.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
}

void CountText(std::size_t length)
{
    if (length >= text_stat.by_length.size()) {
        AddTo(text_stat.longer, 1UL);
        AddTo<unsigned long long>(text_stat.longer_bytes, length);
    } else if (length != 32) {
        AddTo(text_stat.by_length[length], 1UL);
    }
}

} // namespace

constinit UtfPosCache* const DataItem::c_IsAscii = const_cast<UtfPosCache*>(&ascii_mark.map);

char const* Type2XmlType(ItemType type)
{
    constexpr std::array names{"", "i", "f", "", "p", "m", "s", "sh", "any", "", "i64", ""};
    auto const index = static_cast<std::size_t>(type);
    return index < names.size() ? names[index] : "";
}

DataItem::DataItem(unsigned int v) noexcept
{
    if (v < 0x80000000U)
        Set(it_int, static_cast<int>(v));
    else
        Set(it_double, static_cast<double>(v));
}

DataItem::DataItem(unsigned long long v) noexcept
{
    if (v >> 63 == 0)
        Set(it_int64, static_cast<long long>(v));
    else
        Set(it_double, static_cast<double>(v));
}

DataItem::DataItem(char const* text)
{
    std::size_t const length = text ? std::strlen(text) : 0;
    if (length <= max_inline)
        HoldInline(text, length);
    else
        HoldLong(new LongText(text, length), nullptr);
}

DataItem::DataItem(safestring const& text)
{
    if (text.size() <= max_inline)
        HoldInline(text.data(), text.size());
    else
        HoldLong(new LongText(text), nullptr);
}

DataItem::DataItem(safestring& text, UtfPosCache* cache)
{
    if (text.size() <= max_inline) {
        HoldInline(text.data(), text.size());
        FreeUtfPosCache(cache);
        return;
    }
    auto* own = new LongText;
    own->swap(text);
    HoldLong(own, cache);
}

void DataItem::HoldInline(char const* text, std::size_t length) noexcept
{
    bits_ = Bits{{}, it_shortstring, -1};
    if (length != 0)
        std::memcpy(bits_.value, text, strnlen(text, length));
}

void DataItem::HoldLong(safestring* text, UtfPosCache* cache) noexcept
{
    CountText(text->size());
    Set(it_string, text);
    Store(cache, cache_at);
}

void DataItem::Hold(ThreadSharable* sharable)
{
    if (!sharable)
        return SetUndefined();
    sharable->Capture();
    Set(it_sharable, sharable);
}

void DataItem::CountOther()
{
    if (bits_.type == it_sharable)
        return Load<ThreadSharable*>()->Capture();
    if (bits_.type != it_string)
        throw "Never happens - DI259";
    auto text = std::make_unique<LongText>(Long());
    Store(CopyCache(Cache()), cache_at);
    CountText(text->size());
    Store(text.release());
}

void DataItem::AssignOwner(DataItem const& o)
{
    if (bits_.type != it_string || o.bits_.type != it_string)
        return DataItem(o).swap(*this);
    // text onto text: what may fail comes first, and the memory at hand is used again
    UtfPosCache* const cache = CopyCache(o.Cache());
    try {
        Long() = o.Long();
    } catch (...) {
        FreeUtfPosCache(cache);
        throw;
    }
    FreeUtfPosCache(Cache());
    Store(cache, cache_at);
    bits_.creator = o.bits_.creator;
}

void DataItem::DropOther()
{
    if (bits_.type == it_string) {
        delete static_cast<LongText*>(&Long());
        FreeUtfPosCache(Cache());
    } else if (bits_.type == it_sharable) {
        Load<ThreadSharable*>()->Release();
    }
}

void DataItem::SetCreator(int line)
{
    if (line < -32768 || line > 32767)
        Raise(err_request, "Script too long(?)");
    bits_.creator = static_cast<short>(line);
}

void DataItem::Assign(safestring const& text)
{
    DataItem(text).swap(*this);
}

void DataItem::AssignOrSwap(safestring& text)
{
    DataItem(text, nullptr).swap(*this);
    text.clear();
}

void DataItem::Swap(safestring& text, UtfPosCache*& cache)
{
    if (bits_.type != it_string) {
        auto own = std::make_unique<LongText>(GetString());
        short const creator = bits_.creator;
        DataItem fresh;
        fresh.HoldLong(own.release(), nullptr);
        fresh.bits_.creator = creator;
        fresh.swap(*this);
    }
    Long().swap(text);
    UtfPosCache* const mine = Cache();
    Store(cache, cache_at);
    cache = mine;
}

void DataItem::DestroyCache(UtfPosCache* cache) noexcept
{
    std::destroy_at(cache);
    mb_free(cache);
}

void DataItem::AddStat(int length)
{
    CountText(static_cast<std::size_t>(length));
}

void DataItem::PrintStat()
{
    unsigned long count = text_stat.longer;
    unsigned long long bytes = text_stat.longer_bytes;
    for (std::size_t length = 0; length < text_stat.by_length.size(); ++length) {
        count += text_stat.by_length[length];
        bytes += text_stat.by_length[length] * length;
    }
    std::size_t median = 0;
    for (unsigned long passed = 0; median < text_stat.by_length.size(); ++median) {
        passed += text_stat.by_length[median];
        if (2 * passed > count)
            break;
    }
    std::fprintf(stderr, "Total DataItem string allocations: %lu\n", count);
    std::fprintf(stderr, "Average DataItem string allocation size: %g\n",
                 count ? static_cast<double>(bytes) / static_cast<double>(count) : 0.0);
    std::fprintf(stderr, "DataItem size: %zu\n", sizeof(DataItem));
    std::fprintf(stderr, "Median DataItem string allocation size: %zu\n", median);
}

} // namespace NKelmic
