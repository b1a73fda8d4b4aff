#ifndef MEMBLOCK_BASE_SAFESTRING_H
#define MEMBLOCK_BASE_SAFESTRING_H

#include <memblock/export.h>

#include <compare>
#include <string>

namespace Ntarnwick {

/// Character traits that ignore ASCII case in every comparison and search.
///
/// Order: letters fold to upper case and bytes compare as signed chars, so 0x80 and above sort
/// before ASCII and '_' behind all letters. No byte but 'A' to 'Z' and 'a' to 'z' is folded.
struct MEMBLOCK_API safestring_traits : std::char_traits<char> {
    using comparison_category = std::weak_ordering;
    static constexpr char fold_up(char c) { return c >= 'a' && c <= 'z' ? char(c - 0x20) : c; }
    static constexpr char fold_down(char c) { return c >= 'A' && c <= 'Z' ? char(c + 0x20) : c; }
    static constexpr bool eq(char a, char b) { return fold_down(a) == fold_down(b); }
    static constexpr bool lt(char a, char b)
    {
        return static_cast<signed char>(fold_up(a)) < static_cast<signed char>(fold_up(b));
    }
    static int compare(char const* a, char const* b, std::size_t n)
    {
        if (n != 0 && !eq(*a, *b)) // most names differ at once, which saves the call
            return lt(*a, *b) ? -1 : 1;
        return compare_all(a, b, n);
    }
    static char const* find(char const* s, std::size_t n, char const& c);

private:
    static int compare_all(char const* a, char const* b, std::size_t n);
};

/// The library's text: a standard string that compares without regard to case. Maps keyed by it
/// are case-insensitive; `find` and `==` ignore case too, so take a byte loop where it matters.
///
/// It has no `std::hash` and no `<<`: print `c_str()`. Its objects may not be moved by bytes.
typedef std::basic_string<char, safestring_traits> safestring;

/// A list of texts held as one text, with a separator character between the items.
///
/// The text is separated as it is: "a,,b" has three items, "a," two, the empty text
/// none. An item that holds the separator comes out as several.
class MEMBLOCK_API safestringlist {
public:
    safestringlist() : safestringlist(',') {}
    explicit safestringlist(char separator) : separator_(separator) {}
    safestringlist(safestring const& text, char separator) : text_(text), separator_(separator) {}

    /// Number of items. O(length of the text).
    unsigned long size() const;
    bool empty() const { return text_.empty(); }

    /// The item at a position; empty at and behind the end. O(length of the text).
    safestring operator[](unsigned long i) const;

    /// Append an item. The empty item cannot be the only one: pushed to an empty list it leaves it
    /// empty.
    void push_back(safestring const& item);

    /// Take an item out with one of its separators; nothing happens behind the end.
    void erase(unsigned long i);
    void clear() { text_.clear(); }

    char Separator() const { return separator_; }
    safestring const& Text() const { return text_; }

private:
    struct Range {
        std::size_t from, to;
    };
    bool Find(unsigned long i, Range& item) const;

    safestring text_;
    char separator_;
};

/// Cut a text at each character of a set; the result keeps the first of the set as its separator,
/// ',' if the set is empty. With `skip_empty` empty pieces are left out.
MEMBLOCK_API safestringlist SplitString(safestring const& text, safestring const& separators,
                                        bool skip_empty);

/// Join the items with a text between each two.
MEMBLOCK_API safestring JoinString(safestringlist const& list, safestring const& separator);

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_SAFESTRING_H
