#ifndef MEMBLOCK_BASE_LARGEBLOCK_INTERNAL_H
#define MEMBLOCK_BASE_LARGEBLOCK_INTERNAL_H

// Whether large blocks are mappings of their own. Not under a sanitizer, which has to see them.
#ifndef MEMBLOCK_LARGE_BLOCKS
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MEMBLOCK_LARGE_BLOCKS 0
#else
#define MEMBLOCK_LARGE_BLOCKS 1
#endif
#endif

#include <cstddef>
#include <cstdint>

/// Large blocks behind the allocation family: mappings at multiples of 2 MiB, some of them kept
/// for reuse when they are freed.
namespace Ntarnwick::large {

constexpr bool enabled = MEMBLOCK_LARGE_BLOCKS != 0;
constexpr std::size_t huge_page = std::size_t(2) << 20;
constexpr std::size_t threshold = std::size_t(1) << 20; ///< smaller requests are not ours
constexpr std::size_t kept_bytes_max = std::size_t(256) << 20;
constexpr unsigned kept_blocks_max = 16;
/// Up to here clearing a kept block is cheaper than fresh pages. Beyond the processor's caches it
/// costs twice their faults, and clears what may never be written.
constexpr std::size_t clear_max = std::size_t(8) << 20;

/// Whether an address may be that of a large block: false for nearly every other block, so that
/// `Capacity` is asked for a handful of them only.
inline bool MayBe(void const* block)
{
    return enabled && (reinterpret_cast<std::uintptr_t>(block) & (huge_page - 1)) == 0;
}

/// The usable bytes of a live large block; 0 for any other address.
std::size_t Capacity(void const* block);

/// Get a block of at least `size` bytes, zeroed on request. Null if the system has none.
void* Allocate(std::size_t size, bool zeroed);

/// Make a live large block of `capacity` bytes hold at least `size` bytes, itself at least
/// `threshold`. It may move. Null if it cannot grow; it is then as it was.
void* Resize(void* block, std::size_t capacity, std::size_t size);

void Free(void* block, std::size_t capacity);

/// The bytes of all kept blocks.
std::size_t KeptBytes();

/// Give all kept blocks back to the system.
void DropKept();

} // namespace Ntarnwick::large

#endif // MEMBLOCK_BASE_LARGEBLOCK_INTERNAL_H
