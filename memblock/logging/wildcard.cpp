#include <memblock/logging/logger.h>

namespace NKelmic {

bool WildCardMatch(safestring const& a, safestring const& b)
{
    return WildCardMatch(a, 0, b, 0);
}

bool WildCardMatch(safestring const& a, unsigned long apos, safestring const& b, unsigned long bpos)
{
    // No recursion and no exponential time: only the last star needs a second try, as it can match
    // all that an earlier one could leave to it.
    unsigned long star = safestring::npos; // position after the last star met
    unsigned long retry = 0;               // where the text continues after that star
    while (apos < a.size()) {
        if (bpos < b.size() && b[bpos] == '*') {
            star = ++bpos;
            retry = apos;
        } else if (bpos < b.size() && safestring_traits::eq(a[apos], b[bpos])) {
            ++apos;
            ++bpos;
        } else if (star != safestring::npos) {
            apos = ++retry;
            bpos = star;
        } else {
            return false;
        }
    }
    while (bpos < b.size() && b[bpos] == '*')
        ++bpos;
    return bpos >= b.size();
}

} // namespace NKelmic
