#include <memblock/core/dataitem.h>

#include <memblock/base/alloc.h>
#include <memblock/logging/logger.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <new>

namespace NKelmic {

namespace {

bool StartsChar(char byte)
{
    return (byte & 0xC0) != 0x80;
}

/// The length of a multibyte character by its first byte: a byte for each leading set bit.
int MultibyteLength(unsigned char lead)
{
    int length = 2;
    for (unsigned bit = 0x20; lead & bit; bit >>= 1)
        ++length;
    return length;
}

struct CacheDeleter {
    void operator()(UtfPosCache* cache) const { DataItem::FreeUtfPosCache(cache); }
};
typedef std::unique_ptr<UtfPosCache, CacheDeleter> OwnedCache;

OwnedCache NewCache()
{
    void* memory = mb_malloc(sizeof(UtfPosCache));
    if (!memory)
        throw std::bad_alloc();
    return OwnedCache(new (memory) UtfPosCache);
}

/// Null if the text holds no multibyte character.
OwnedCache PositionsBehindMultibyte(safestring const& text)
{
    OwnedCache cache;
    int chars = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!StartsChar(text[i]))
            continue;
        ++chars;
        auto const byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80)
            continue;
        if (!cache)
            cache = NewCache();
        cache->emplace_hint(cache->end(), chars, static_cast<int>(i) + MultibyteLength(byte));
    }
    return cache;
}

/// The last entry with a byte position not above b, end() without one.
///
/// Where every multibyte character is whole, byte positions grow with character positions, so that
/// the entry is found by halving the range of keys. A cut one points up to six bytes too far, which
/// leaves at most max_misplaced entries behind the one found that may be it instead. Entries with a
/// key of b or more have passed b by then, since every value is above its key.
UtfPosCache::const_iterator LastUpToByte(UtfPosCache const& cache, int b)
{
    constexpr int max_misplaced = 6; // lead bytes of lengths 2 to 8
    auto found = cache.end(), above = cache.begin();
    int from = 0;
    for (int to = cache.empty() ? -1 : std::min(b, cache.rbegin()->first); from <= to;) {
        int const middle = from + (to - from) / 2;
        auto next = cache.upper_bound(middle);
        if (next == cache.begin()) {
            from = middle + 1;
            continue;
        }
        auto const entry = std::prev(next);
        if (entry->second <= b) {
            found = entry;
            above = next;
            from = middle + 1;
        } else {
            to = entry->first - 1;
        }
    }
    for (int i = 0; i < max_misplaced && above != cache.end(); ++i, ++above)
        if (above->second <= b)
            found = above;
    return found;
}

/// A sum of positions, kept in range: scripts write "up to the end" as the greatest int.
int Clamped(long long position)
{
    return static_cast<int>(std::min<long long>(position, std::numeric_limits<int>::max()));
}

/// Short texts are scanned each time. Behind the end every byte counts as a character.
int ScanToChar(std::string_view text, int c)
{
    int chars = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (StartsChar(text[i]) && chars++ == c)
            return static_cast<int>(i);
    return c <= 0 ? c : Clamped(static_cast<long long>(text.size()) + c - chars);
}

int ScanToByte(std::string_view text, int b)
{
    if (b <= 0)
        return b;
    auto const inside = std::min(static_cast<std::size_t>(b), text.size());
    auto const chars = std::count_if(text.begin(), text.begin() + inside, StartsChar);
    return static_cast<int>(b - static_cast<long>(inside) + chars);
}

} // namespace

bool DataItem::IsAscii(safestring const& text)
{
    unsigned char bits = 0;
    for (char c : text)
        bits |= static_cast<unsigned char>(c);
    return bits < 0x80;
}

void DataItem::BuildUtfPosCache() const
{
    if (bits_.type != it_string || Cache())
        return;
    OwnedCache cache = PositionsBehindMultibyte(Long());
    Store(cache ? cache.get() : c_IsAscii, cache_at);
    OwnedCache::pointer const made = cache.release();
    if (!Long().empty() && Logger::Enabled(topic_cache, 8))
        Logger::Log(topic_cache, "utf8", 8,
                    Text("Building UTF-8 multibyte character lookup cache of %d "
                         "characters for string: %s",
                         static_cast<int>(made ? made->size() : 0), *this));
}

int DataItem::CharPosToBytePos(int c) const
{
    if (bits_.type == it_shortstring)
        return ScanToChar({AsText().data(), AsText().size()}, c);
    BuildUtfPosCache();
    if (bits_.type != it_string || Cache() == c_IsAscii)
        return c;
    auto const entry = Cache()->upper_bound(c);
    if (entry == Cache()->begin())
        return c;
    return Clamped(static_cast<long long>(c) - std::prev(entry)->first + std::prev(entry)->second);
}

int DataItem::BytePosToCharPos(int b) const
{
    if (bits_.type == it_shortstring)
        return ScanToByte({AsText().data(), AsText().size()}, b);
    BuildUtfPosCache();
    if (bits_.type != it_string || Cache() == c_IsAscii)
        return b;
    auto const entry = LastUpToByte(*Cache(), b);
    return entry == Cache()->end() ? b : b - entry->second + entry->first;
}

} // namespace NKelmic
