#ifndef MEMBLOCK_SERIAL_FACTORY_H
#define MEMBLOCK_SERIAL_FACTORY_H

#include <memblock/core/memblock.h>
#include <memblock/threads/mutex.h>

#include <map>

namespace NKelmic {

/// Makes an empty object of a class.
typedef PMemBlock (*MemBlockCreator)();

/// One row of the class table that a library exports.
struct MEMBLOCK_API ClassInfo {
    char const* name;
    MemBlockCreator creator;
};

/// Makes objects by class name, in any letter case. There is one for the process:
/// `MemBlock::Factory()`. All operations may be called from any thread; neither creators nor the
/// auxiliary loader run under its lock, so both may call back.
class MEMBLOCK_API MemBlockFactory {
public:
    /// Starts with this library's own classes.
    MemBlockFactory();
    virtual ~MemBlockFactory();
    MemBlockFactory(MemBlockFactory const&) = delete;
    MemBlockFactory& operator=(MemBlockFactory const&) = delete;

    /// Make an object. A class that is not there is asked of the auxiliary loader once; null if
    /// that does not help.
    PMemBlock GetInstance(safestring const& classname);

    /// Add the classes of a library; a name that is there already gets the new creator.
    ///
    /// With a null table the library, which must be loaded already, is asked for its
    /// `ExportedClasses`. A library with registered classes stays mapped. False after a report:
    /// "MemBlockFactory::RegisterMemBlockLibrary(): library not found: %s", code 128;
    /// "MemBlockFactory::RegisterMemBlockLibrary(): Error while calling ExportedClasses() in
    /// library: %s", code 128.
    bool RegisterMemBlockLibrary(safestring const& libname, ClassInfo const* table, int count,
                                 ThrowHandlerFunc handler);
    bool RegisterMemBlockLibrary(safestring const& libname, ClassInfo const* table, int count);

    /// Have the auxiliary loader look for a class: 0 if it succeeds, 2 if not or without a loader.
    int LocateAndLoadClass(safestring const& classname);
    void SetAuxLoader(bool (*loader)(safestring const&)); // null: none

    safestring ListClasses(char separator);
    void InstantiateAllClasses(); // does nothing
    void ClearAllClasses();       // does nothing

private:
    MemBlockCreator FindCreator(safestring const& classname);
    void Insert(ClassInfo const* table, int count);

    Mutex mutex_;
    std::map<safestring, MemBlockCreator> classes_; // guarded by mutex_
    bool (*aux_loader_)(safestring const&);         // guarded by mutex_
};

/// `MemBlock::Factory().RegisterMemBlockLibrary` and `ListClasses`.
MEMBLOCK_API bool RegisterMemBlockLibrary(char const* libname, ClassInfo const* table, int count);
MEMBLOCK_API safestring ListClasses(char separator);

/// The text in which a class tells its keys. Never throws: a failure is given as the text, such as
/// "Error: class not registered in current process.\n".
MEMBLOCK_API safestring ClassDescription(safestring const& classname);

/// Have the engine load all standard libraries: what it answers, or 2050 without it.
MEMBLOCK_API int LoadAllStdLibsMemBlock();

} // namespace NKelmic

#endif // MEMBLOCK_SERIAL_FACTORY_H
