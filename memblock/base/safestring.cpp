#include <memblock/base/safestring.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Ntarnwick {

namespace {

/// Eight or four bytes of a text, the first in the most significant place.
template <class Word>
Word Load(char const* p)
{
    Word word;
    std::memcpy(&word, p, sizeof word);
    if constexpr (std::endian::native == std::endian::little)
        word = sizeof word == 8 ? __builtin_bswap64(word) : __builtin_bswap32(word);
    return word;
}

/// Fold 'a' to 'z' in all bytes of a word to upper case at once.
template <class Word>
Word FoldUp(Word word)
{
    constexpr Word ones = static_cast<Word>(0x0101010101010101);
    Word const low_bits = word & ones * 0x7F;
    Word const from_a = low_bits + ones * (0x80 - 'a'); // top bit: not below 'a'
    Word const behind_z = low_bits + ones * (0x7F - 'z');
    Word const lower = (from_a ^ behind_z) & ~word & ones * 0x80;
    return word - (lower >> 2);
}

/// Compare the words at a position as folded signed bytes.
template <class Word>
int CompareWords(char const* a, char const* b)
{
    Word const x = Load<Word>(a), y = Load<Word>(b);
    if (x == y)
        return 0;
    constexpr Word top_bits = static_cast<Word>(0x8080808080808080);
    Word const p = FoldUp(x) ^ top_bits, q = FoldUp(y) ^ top_bits; // signed order by unsigned words
    return p == q ? 0 : p < q ? -1 : 1;
}

int CompareBytes(char const* a, char const* b, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) {
        if (safestring_traits::lt(a[i], b[i]))
            return -1;
        if (safestring_traits::lt(b[i], a[i]))
            return 1;
    }
    return 0;
}

/// The last word overlaps what is known to be equal, so that no byte is left over.
template <class Word>
int CompareByWords(char const* a, char const* b, std::size_t n)
{
    constexpr std::size_t width = sizeof(Word);
    for (std::size_t i = 0; i + width < n; i += width)
        if (int const order = CompareWords<Word>(a + i, b + i))
            return order;
    return CompareWords<Word>(a + n - width, b + n - width);
}

} // namespace

int safestring_traits::compare_all(char const* a, char const* b, std::size_t n)
{
    if (n >= 8)
        return CompareByWords<std::uint64_t>(a, b, n);
    return n >= 4 ? CompareByWords<std::uint32_t>(a, b, n) : CompareBytes(a, b, n);
}

char const* safestring_traits::find(char const* s, std::size_t n, char const& c)
{
    char const wanted = fold_down(c);
    if (wanted == fold_up(c)) // no letter: nothing else is equal to it
        return static_cast<char const*>(n == 0 ? nullptr : std::memchr(s, c, n));
    for (std::size_t i = 0; i < n; ++i)
        if (fold_down(s[i]) == wanted)
            return s + i;
    return nullptr;
}

namespace {

/// Position of a separator from `from` on, or the length. The separator may be a letter, so this
/// looks for the very byte.
std::size_t NextSeparator(safestring const& text, char separator, std::size_t from)
{
    void const* found = std::memchr(text.data() + from, separator, text.size() - from);
    return found ? static_cast<char const*>(found) - text.data() : text.size();
}

} // namespace

unsigned long safestringlist::size() const
{
    return empty() ? 0 : 1 + std::count(text_.begin(), text_.end(), separator_);
}

bool safestringlist::Find(unsigned long i, Range& item) const
{
    if (empty())
        return false;
    item.from = 0;
    for (;; --i) {
        item.to = NextSeparator(text_, separator_, item.from);
        if (i == 0)
            return true;
        if (item.to == text_.size())
            return false;
        item.from = item.to + 1;
    }
}

safestring safestringlist::operator[](unsigned long i) const
{
    Range item;
    return Find(i, item) ? text_.substr(item.from, item.to - item.from) : safestring();
}

void safestringlist::push_back(safestring const& item)
{
    if (!empty())
        text_ += separator_;
    text_ += item;
}

void safestringlist::erase(unsigned long i)
{
    Range item;
    if (!Find(i, item))
        return;
    if (item.to < text_.size())
        ++item.to;
    else if (item.from > 0)
        --item.from;
    text_.erase(item.from, item.to - item.from);
}

safestringlist SplitString(safestring const& text, safestring const& separators, bool skip_empty)
{
    // A list has one separator, so all others become the first one.
    char const kept = separators.empty() ? ',' : separators[0];
    safestring joined;
    bool first = true;
    for (std::size_t from = 0; from <= text.size();) {
        std::size_t to = from;
        while (to < text.size() && !(std::memchr(separators.data(), text[to], separators.size())))
            ++to;
        if (to > from || !skip_empty) {
            if (!first)
                joined += kept;
            joined.append(text, from, to - from);
            first = false;
        }
        from = to + 1;
    }
    return safestringlist(joined, kept);
}

safestring JoinString(safestringlist const& list, safestring const& separator)
{
    safestring joined;
    for (char c : list.Text()) {
        if (c == list.Separator())
            joined += separator;
        else
            joined += c;
    }
    return joined;
}

} // namespace Ntarnwick
