#include <memblock/serial/loader.h>

#include <memblock/base/raise.h>
#include <memblock/serial/loader_internal.h>

#include <algorithm>
#include <boost/thread/mutex.hpp>
#include <cstdio>
#include <dlfcn.h>
#include <initializer_list>
#include <link.h>
#include <unistd.h>

namespace NKelmic {
namespace {
constexpr char const* library_suffix = ".so"; // the platform's; all names below are made with it
constexpr char const* version_tail = ".2";    // behind the suffix or the file name: our major

boost::mutex& CacheMutex()
{
    static boost::mutex& mutex = *new boost::mutex; // engine functions are sought from any thread
    return mutex;
}

bool EndsWith(safestring const& text, safestring const& tail)
{
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

// File names do tell letter case apart, so this is a comparison of bytes.
bool BeginsWithLib(char const* base_name)
{
    return base_name[0] == 'l' && base_name[1] == 'i' && base_name[2] == 'b';
}

safestring WithLib(safestring const& name)
{
    return BeginsWithLib(name.c_str()) ? name : "lib" + name;
}

void* OpenIfLoaded(safestring const& file)
{
    return dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
}

void* FindLoaded(safestring const& name)
{
    if (name.find('.') != safestring::npos)
        return OpenIfLoaded(name);
    // Our own release first, then the versions behind the suffix, as this platform writes them.
    for (char const* form : {"lib%s.2.2%s", "lib%s.2%s", "lib%s%s", "lib%s%s.2.2", "lib%s%s.2"})
        if (void* handle = OpenIfLoaded(Text(form, name, library_suffix)))
            return handle;
    return nullptr;
}

bool IsReadableFile(safestring const& name)
{
    return access(name.c_str(), R_OK) == 0;
}
} // namespace

std::map<safestring, void*>& so_cache()
{
    static auto& cache = *new std::map<safestring, void*>;
    return cache;
}

safestring canonic(safestring const& name)
{
    auto const slash = name.rfind('/');
    safestring::size_type const base = slash == safestring::npos ? 0 : slash + 1;
    safestring key = name;
    if (!BeginsWithLib(name.c_str() + base))
        key.insert(base, "lib");
    return key;
}

void* GetSharedLibHandle(safestring const& name)
{
    safestring const key = canonic(name);
    {
        boost::mutex::scoped_lock lock(CacheMutex());
        if (auto const hit = so_cache().find(key); hit != so_cache().end())
            return hit->second;
    }
    // Not under the lock: another thread may be inside dlopen, with the loader's own lock held,
    // in a constructor that comes here.
    void* const handle = FindLoaded(name);
    if (!handle)
        return nullptr;
    boost::mutex::scoped_lock lock(CacheMutex());
    auto const [entry, fresh] = so_cache().try_emplace(key, handle);
    void* const kept = entry->second;
    lock.unlock();
    if (!fresh) // The reference that dlopen takes is kept with the cached handle, and only there.
        dlclose(handle);
    return kept;
}

void* LoadSharedLib(safestring const& name, unsigned flags)
{
    safestring file = name;
    if (file.find('/') == safestring::npos) {
        file = WithLib(file);
        for (char const* foreign : {".dll", ".dylib"})
            if (EndsWith(file, foreign))
                file.erase(file.rfind('.'));
        if (file.find(library_suffix) == safestring::npos)
            file += library_suffix;
    }
    int mode = static_cast<int>(flags);
    if (!(mode & (RTLD_NOW | RTLD_LAZY)))
        mode |= RTLD_NOW;
    void* const handle = dlopen(file.c_str(), mode);
    if (!handle) {
        std::fprintf(stderr, "Warning: couldn't load shared library \"%s\": %s\n", file.c_str(),
                     dllerror1().c_str());
        return nullptr;
    }
    boost::mutex::scoped_lock lock(CacheMutex());
    so_cache()[canonic(file)] = handle;
    return handle;
}

bool FreeSharedLib(void* handle)
{
    if (!handle)
        return false;
    {
        boost::mutex::scoped_lock lock(CacheMutex());
        std::erase_if(so_cache(), [handle](auto const& entry) { return entry.second == handle; });
    }
    return dlclose(handle) == 0;
}

void* GetProcAddress(void* handle, char const* symbol)
{
    return handle ? dlsym(handle, symbol) : nullptr; // null would search the whole process
}

void* GetOwnProcAddress(void* handle, char const* symbol)
{
    void* const address = GetProcAddress(handle, symbol);
    link_map* wanted = nullptr;
    if (!address || dlinfo(handle, RTLD_DI_LINKMAP, &wanted) != 0)
        return nullptr;
    Dl_info info;
    link_map* owner = nullptr;
    if (!dladdr1(address, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP))
        return nullptr;
    return owner == wanted ? address : nullptr;
}

void* PinLibraryOf(void const* address)
{
    Dl_info info;
    link_map* owner = nullptr;
    if (!dladdr1(address, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP))
        return nullptr;
    char const* const file = owner->l_name[0] ? owner->l_name : nullptr; // the program has no name
    return dlopen(file, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

safestring GetSharedLibFileName(void* handle)
{
    bool known = false;
    {
        boost::mutex::scoped_lock lock(CacheMutex());
        for (auto const& entry : so_cache())
            known = known || entry.second == handle;
    }
    link_map* map = nullptr;
    if (known && handle && dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0)
        return map->l_name;
    std::fprintf(stderr, "Warning:GetSharedLibFileName(%p) failed: %s\n", handle,
                 known ? dllerror1().c_str() : "unknown handle");
    return {};
}

bool check_file_found1(safestring& name)
{
    if (IsReadableFile(name))
        return true;
    safestring const with_version = name + version_tail;
    if (!IsReadableFile(with_version))
        return false;
    name = with_version;
    return true;
}

bool check_file_found(safestring& name, safestring const& searchpath)
{
    if (!name.empty() && name[0] == '/')
        return check_file_found1(name);
    for (safestring::size_type from = 0; from <= searchpath.size();) {
        auto const colon = std::min(searchpath.find(':', from), searchpath.size());
        auto const first = std::min(searchpath.find_first_not_of(' ', from), colon);
        safestring candidate = searchpath.substr(first, colon - first);
        from = colon + 1;
        if (candidate.empty())
            continue;
        candidate += '/';
        candidate += name;
        if (check_file_found1(candidate)) {
            name = candidate;
            return true;
        }
    }
    return false;
}

safestring GetStdLibDir1(int which)
{
    static constinit EngineFunction<GetStdLibDirFunc> get_std_lib_dir{"GetStdLibDir"};
    auto const function = get_std_lib_dir.Find();
    if (!function && !GetSharedLibHandle("kelmic"))
        Raise(err_kind, "GetSharedLibHandle(\"kelmic\") failed.");
    if (!function)
        Raise(err_kind, "GetProcAddress(h, \"GetStdLibDir\") failed.");
    char const* const directory = function(which);
    return directory ? directory : "";
}

safestring dllerror1()
{
    char const* const text = dlerror();
    return text ? text : "";
}

void* EngineFunctionBase::Address()
{
    void* address = address_.load(std::memory_order_acquire);
    if (!address) {
        address = GetProcAddress(GetSharedLibHandle("kelmic"), name_);
        address_.store(address, std::memory_order_release);
    }
    return address;
}

} // namespace NKelmic
