#ifndef MEMBLOCK_CORE_CONVERSION_INTERNAL_H
#define MEMBLOCK_CORE_CONVERSION_INTERNAL_H

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/core/dataitem.h>

namespace NKelmic {

inline safestring Trimmed(safestring text)
{
    apply_trim(text);
    return text;
}

/// An int or a double where the text reads as one, the text otherwise.
inline DataItem NumberOrText(safestring const& text)
{
    if (!is_numeric(text))
        return text;
    int integer = 0;
    double floating = 0.0;
    if (StrToNumber(text, integer, floating))
        return integer;
    return floating;
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_CONVERSION_INTERNAL_H
