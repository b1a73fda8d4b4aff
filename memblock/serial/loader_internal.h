#ifndef MEMBLOCK_SERIAL_LOADER_INTERNAL_H
#define MEMBLOCK_SERIAL_LOADER_INTERNAL_H

#include <memblock/serial/loader.h>

#include <span>

namespace NKelmic {

/// What `ExportedClasses` and `GetMorvaneVersion` of this library tell. Inside the library these
/// are asked: a plug-in's exported functions of the same names may stand in front of ours.
std::span<ClassInfo const> OwnClasses();
MorvaneVersionInfo const& OwnVersion();

/// The address of a symbol that the library itself defines. One that only its dependencies define
/// is a miss: each library of the environment exports the same names.
void* GetOwnProcAddress(void* handle, char const* symbol);

/// Keep the file that holds an address mapped until the process ends. Returns its handle, which
/// the caller closes as usual; null if no file holds the address.
void* PinLibraryOf(void const* address);

} // namespace NKelmic

#endif // MEMBLOCK_SERIAL_LOADER_INTERNAL_H
