#ifndef MEMBLOCK_BASE_CARRIER_H
#define MEMBLOCK_BASE_CARRIER_H

#include <memblock/export.h>

namespace Ntarnwick {

/// A buffer with the function by which it goes back to its owner. At most one of the two release
/// functions is set; with none the memory is the caller's all along.
struct MEMBLOCK_API Carrier {
    mutable void* data = nullptr;
    mutable unsigned long size = 0;                ///< in bytes
    mutable void (*release)(void* data) = nullptr; ///< `mb_free` for memory of our own
    mutable void (*release2)(void* data, void* user_data) = nullptr;
    void* user_data = nullptr; ///< handed to `release2`
    bool copied = false;       ///< copied, with a NUL behind it
    bool read_only = false;
};

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_CARRIER_H
