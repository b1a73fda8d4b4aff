#ifndef MEMBLOCK_CORE_MEMTRACK_H
#define MEMBLOCK_CORE_MEMTRACK_H

#include <memblock/core/fwd.h>
#include <memblock/export.h>

namespace NKelmic {

// Hooks that other libraries link against. They do nothing but what is said here.
MEMBLOCK_API void PrintMemTrack(char const* text, MemBlock const* block);
MEMBLOCK_API void MemTrackCapture(MemBlock const* block);
MEMBLOCK_API void MemManagerActivateMultiThreading();
MEMBLOCK_API void AssignThreadId(PMemBlock& block, unsigned int id);
MEMBLOCK_API bool HasThreadId(PMemBlock& block, unsigned int id); ///< true
MEMBLOCK_API void bp();                                           ///< debugger trap
MEMBLOCK_API int ThreadSharableGetRefCount(void const* sharable);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_MEMTRACK_H
