#include <memblock/logging/logger.h>

namespace NKelmic {

bool WildCardMatch(safestring const& a, safestring const& b)
{
    return WildCardMatch(a, 0, b, 0);
}

bool WildCardMatch(safestring const& a, unsigned long apos, safestring const& b, unsigned long bpos)
{
    // Only the last star ever needs a second try: what an earlier one could give up, the last one
    // can take.
    unsigned long star = safestring::npos; // behind the last star met
    unsigned long retry = 0;               // where the text goes on after that star
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
