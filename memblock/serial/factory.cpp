#include <memblock/serial/factory.h>

#include <memblock/base/raise.h>
#include <memblock/logging/logger.h>
#include <memblock/serial/loader_internal.h>

#include <algorithm>
#include <dlfcn.h>

namespace NKelmic {
namespace {

// Nobody is refused for its version; the log tells which pair met.
void LogVersions(safestring const& libname, void* library)
{
    if (!Logger::Enabled(topic_module, 3))
        return;
    MorvaneVersionInfo const& own = OwnVersion();
    Logger::Log(
        topic_module, "factory", 3,
        Text("Registering classes of \"%s\", version %d.%d.%d.%d, with memblock %d.%d.%d.%d",
             libname, LibVersion(library, lv_major), LibVersion(library, lv_minor),
             LibVersion(library, lv_build), LibVersion(library, lv_revision), own.major_no,
             own.minor_no, own.build, own.revision));
}

// Creators, tables and the objects' own code live in the library.
void KeepMapped(safestring const& libname, std::span<ClassInfo const> table)
{
    auto const row = std::ranges::find_if(table, &ClassInfo::creator);
    if (row == table.end())
        return;
    if (void* const library = PinLibraryOf(reinterpret_cast<void const*>(row->creator))) {
        LogVersions(libname, library);
        dlclose(library); // gives back the count; the mapping stays
    }
}
} // namespace

MemBlockFactory::MemBlockFactory() : aux_loader_(nullptr)
{
    auto const own = OwnClasses();
    Insert(
        own.data(),
        static_cast<int>(own.size())); // not through Factory(), whose static is being made just now
}

MemBlockFactory::~MemBlockFactory() = default;

void MemBlockFactory::Insert(ClassInfo const* table, int count)
{
    Lock lock(mutex_, __FILE__, __LINE__);
    for (int i = 0; i < count; ++i)
        if (table[i].name && table[i].creator)
            classes_.insert_or_assign(table[i].name, table[i].creator); // keeps the first spelling
}

MemBlockCreator MemBlockFactory::FindCreator(safestring const& classname)
{
    Lock lock(mutex_, __FILE__, __LINE__);
    auto const found = classes_.find(classname);
    return found == classes_.end() ? nullptr : found->second;
}

PMemBlock MemBlockFactory::GetInstance(safestring const& classname)
{
    MemBlockCreator creator = FindCreator(classname);
    if (!creator) { // the loader may have brought the class whatever it answers
        LocateAndLoadClass(classname);
        creator = FindCreator(classname);
    }
    return creator ? creator() : PMemBlock();
}

bool MemBlockFactory::RegisterMemBlockLibrary(safestring const& libname, ClassInfo const* table,
                                              int count, ThrowHandlerFunc handler)
{
    if (!table) {
        void* const library = GetSharedLibHandle(libname);
        if (!library) {
            Report(handler, err_kind,
                   "MemBlockFactory::RegisterMemBlockLibrary(): library not found: %s", libname);
            return false;
        }
        auto const exported = reinterpret_cast<decltype(&ExportedClasses)>(
            GetOwnProcAddress(library, "ExportedClasses"));
        if (!exported || exported(&table, &count) != 0 || !table) {
            Report(handler, err_kind,
                   "MemBlockFactory::RegisterMemBlockLibrary(): "
                   "Error while calling ExportedClasses() in library: %s",
                   libname);
            return false;
        }
    }
    KeepMapped(libname, {table, static_cast<std::size_t>(std::max(count, 0))});
    Insert(table, count);
    return true;
}

bool MemBlockFactory::RegisterMemBlockLibrary(safestring const& libname, ClassInfo const* table,
                                              int count)
{
    return RegisterMemBlockLibrary(libname, table, count, throw_always);
}

int MemBlockFactory::LocateAndLoadClass(safestring const& classname)
{
    bool (*loader)(safestring const&) = nullptr;
    {
        Lock lock(mutex_, __FILE__, __LINE__);
        loader = aux_loader_;
    }
    return loader && loader(classname) ? 0 : 2;
}

void MemBlockFactory::SetAuxLoader(bool (*loader)(safestring const&))
{
    Lock lock(mutex_, __FILE__, __LINE__);
    aux_loader_ = loader;
}

safestring MemBlockFactory::ListClasses(char separator)
{
    Lock lock(mutex_, __FILE__, __LINE__);
    safestring list;
    for (auto const& entry : classes_) {
        if (!list.empty())
            list += separator;
        list += entry.first;
    }
    return list;
}

void MemBlockFactory::InstantiateAllClasses() {}

void MemBlockFactory::ClearAllClasses() {}

MemBlockFactory& MemBlock::Factory()
{
    static auto& factory = *new MemBlockFactory; // never destroyed: jobs may outlive all statics
    return factory;
}

void MemBlockCleanup()
{
    MemBlock::Factory().ClearAllClasses();
}

bool RegisterMemBlockLibrary(char const* libname, ClassInfo const* table, int count)
{
    return MemBlock::Factory().RegisterMemBlockLibrary(libname, table, count);
}

safestring ListClasses(char separator)
{
    return MemBlock::Factory().ListClasses(separator);
}

safestring ClassDescription(safestring const& classname)
{
    try {
        if (PMemBlock const object = MemBlock::Factory().GetInstance(classname))
            return object->ClassDescription();
        if (classname == "memblock") // abstract: any object can tell the text of the base
            return OwnClasses().front().creator()->MemBlock::ClassDescription();
    } catch (std::exception const& e) {
        return Text("Error: exception occurred: %s\n", e.what());
    } catch (...) {
        return "Error: hardware-reported exception occurred.\n";
    }
    return "Error: class not registered in current process.\n";
}

int LoadAllStdLibsMemBlock()
{
    static constinit EngineFunction<LoadAllStdLibsFunc> load_all{"LoadAllStdLibs"};
    auto const function = load_all.Find();
    return function ? function() : 2050;
}

} // namespace NKelmic
