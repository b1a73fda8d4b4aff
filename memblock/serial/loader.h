#ifndef MEMBLOCK_SERIAL_LOADER_H
#define MEMBLOCK_SERIAL_LOADER_H

#include <memblock/core/memblock.h>
#include <memblock/serial/factory.h>
#include <memblock/serial/warning.h>

#include <map>

/// The identity of a library of the environment, as its `GetMorvaneVersion` tells it.
struct MEMBLOCK_API MorvaneVersionInfo {
    int major_no, minor_no, build, revision;
    char const* build_date;  ///< in the form "Jun 22 2009", as `__DATE__` gives it
    char const* second_date; ///< in the form "2009-06-05"
    char const* product;     ///< what the library is, in words
};

extern "C" {
/// Give the table of the classes that a library offers. Every plug-in exports a function of this
/// name and shape. Returns 0 on success.
MEMBLOCK_API int ExportedClasses(NKelmic::ClassInfo const** table, int* count);

/// Give the identity of a library. Every library of the environment exports it. Here 2.2.
MEMBLOCK_API MorvaneVersionInfo const* GetMorvaneVersion();
}

namespace NKelmic {

enum LibVersionWhat { lv_major = 0, lv_minor = 1, lv_build = 2, lv_revision = 3 };

// -- handles --

/// The handles found or loaded so far, by canonical name. The functions of this header lock it;
/// whoever reads it directly does so while nothing is loaded.
MEMBLOCK_API std::map<safestring, void*>& so_cache();

/// Find a library that this process has already loaded; never loads one. Null if there is none.
///
/// A name with a "." is tried as it stands. For any other the names of this library's own release
/// come first: lib<name>.2.2.so, lib<name>.2.so, lib<name>.so, lib<name>.so.2.2, lib<name>.so.2.
/// A handle that is found keeps its library loaded.
MEMBLOCK_API void* GetSharedLibHandle(safestring const& name);

/// Load a library. Null with a line on standard error if that fails.
///
/// A name without "/" is completed to lib<name>.so; a trailing ".dll" or ".dylib" is replaced.
/// `flags` are those of `dlopen`; without a binding mode among them (0 included) RTLD_NOW is meant.
MEMBLOCK_API void* LoadSharedLib(safestring const& name, unsigned flags);

/// Give back one loading of a library and forget the handle. False for null or on failure.
MEMBLOCK_API bool FreeSharedLib(void* handle);

/// The address of a symbol of the library or of one that it depends on; null for a null handle.
MEMBLOCK_API void* GetProcAddress(void* handle, char const* symbol);

/// The file of a library that was found or loaded here; "" with a line on standard error if the
/// handle is not among these.
MEMBLOCK_API safestring GetSharedLibFileName(void* handle);

// -- names and files --

/// The key of a library name: "lib" goes in front of the base name if it is not there.
MEMBLOCK_API safestring canonic(safestring const& name);

/// Look for a readable file: an absolute name as it is, another one under each directory of
/// `searchpath` (separated by ":"). The name found is written back.
MEMBLOCK_API bool check_file_found(safestring& name, safestring const& searchpath);

/// Test for a readable file of this name, or of this name with the major version behind it (".2"),
/// which is then written back.
MEMBLOCK_API bool check_file_found1(safestring& name);

/// The directory of the standard libraries, which only the engine knows.
/// Throws: "GetSharedLibHandle(\"kelmic\") failed.", code 128, without the engine;
///         "GetProcAddress(h, \"GetStdLibDir\") failed.", code 128, if it has no such function.
MEMBLOCK_API safestring GetStdLibDir1(int which);

// -- identity --

/// A number of the library's version, 0 if it tells none of its own.
/// Throws: "LibVersion(): invalid what parameter: %d", code 128.
MEMBLOCK_API int LibVersion(void* handle, LibVersionWhat what);

/// The build date as "22.06.2009"; "" if the library tells none.
MEMBLOCK_API safestring LibBuildDate(void* handle);

/// File, version and product in one line: "<file> [2.2.0.0] (<product>)"; "" for null.
MEMBLOCK_API safestring LibInfo(void* handle);

/// The month of three letters in any case, 1 to 12; 0 if they name none.
MEMBLOCK_API int FindMon(safestring const& three_letters);

/// The loader's last error in words, "" if there is none.
MEMBLOCK_API safestring dllerror1();

// -- the engine --

/// A function of the engine, found by name at run time. The engine may be loaded later than this
/// library, so only a hit is kept. Constant-initialized; safe from any thread.
class MEMBLOCK_API EngineFunctionBase {
public:
    explicit constexpr EngineFunctionBase(char const* name) : name_(name), address_(nullptr) {}

protected:
    void* Address();

private:
    char const* name_;
    std::atomic<void*> address_;
};

/// The same with the type of the function.
template <class Signature>
class EngineFunction : public EngineFunctionBase {
public:
    using EngineFunctionBase::EngineFunctionBase;
    Signature* Find() { return reinterpret_cast<Signature*>(Address()); } // null: not there
};

/// What the engine offers: "LoadAllStdLibs", "HandleWarning", "GetStdLibDir", "GetItemName".
typedef int LoadAllStdLibsFunc();
typedef int HandleWarningFunc(unsigned int code, char const* text);
typedef char const* GetStdLibDirFunc(int which);
typedef char const* GetItemNameFunc(MemBlock const* object);

} // namespace NKelmic

#endif // MEMBLOCK_SERIAL_LOADER_H
