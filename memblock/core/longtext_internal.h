#ifndef MEMBLOCK_CORE_LONGTEXT_INTERNAL_H
#define MEMBLOCK_CORE_LONGTEXT_INTERNAL_H

#include <memblock/base/safestring.h>
#include <memblock/core/fwd.h>

#include <cstddef>

namespace NKelmic {

/// The text of a value that is too long to fit inside it.
///
/// Such a text costs two blocks, this object and its characters. Values come and go by the million,
/// so each thread keeps the last few blocks of dropped objects and uses them first.
struct LongText : safestring {
    using safestring::safestring;
    explicit LongText(safestring const& text) : safestring(text) {}

    static void* operator new(std::size_t size);
    static void operator delete(void* block) noexcept;
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_LONGTEXT_INTERNAL_H
