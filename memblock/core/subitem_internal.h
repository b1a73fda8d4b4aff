#ifndef MEMBLOCK_CORE_SUBITEM_INTERNAL_H
#define MEMBLOCK_CORE_SUBITEM_INTERNAL_H

#include <memblock/core/safevalue.h>

namespace NKelmic {

/// The failure of a key behind a value that is no object.
inline void ReportNoSubKeyOfScalar(DataItem const& scalar, safestring const& key,
                                   ThrowHandlerFunc handler)
{
    Report(handler, err_kind, "A scalar data item (%s) does not have subkey: %s", scalar, key);
}

/// The failure of a look-up of an object by path.
inline void ReportNoSubItem(MemBlock const& object, safestring const& path,
                            ThrowHandlerFunc handler)
{
    Report(handler, err_value, "Subitem not found: \"%s\": %s", path, object);
}

/// The object in a value; null if it holds anything else.
inline PMemBlock MemoryOrNull(DataItem const& value)
{
    return value.GetType() == it_memblock ? value.GetMemory() : PMemBlock();
}

/// For a change seen only in the description; only content hashes depend on it.
void DropHashes(MemBlock& object);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_SUBITEM_INTERNAL_H
