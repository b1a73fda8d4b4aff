#ifndef MEMBLOCK_BASE_FWD_H
#define MEMBLOCK_BASE_FWD_H

/// Tarnwick, the base library: all other code uses it, and it knows nothing of that code.
/// Texts, errors, numbers, encoders, allocation.
namespace Ntarnwick {

struct safestring_traits;
class safestringlist;
class Exception;
class ThrowHandlerBase;
class ThrowHandlerFunc;
class printfer;
class LogBase;
class opaquestring;

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_FWD_H
