// A stand-in for the engine: the four functions that are asked of it by name.
#include <memblock/serial/loader.h>

using namespace NKelmic;

extern "C" {
__attribute__((visibility("default"))) int LoadAllStdLibs()
{
    return 11;
}
__attribute__((visibility("default"))) int HandleWarning(unsigned int code, char const* text)
{
    return static_cast<int>(code) + text[0];
}
__attribute__((visibility("default"))) char const* GetStdLibDir(int which)
{
    return which == 1 ? "/the/standard/directory" : nullptr;
}
__attribute__((visibility("default"))) char const* GetItemName(MemBlock const* object)
{
    return object ? object->Class() : nullptr;
}
static_assert(std::is_same_v<decltype(LoadAllStdLibs), LoadAllStdLibsFunc> &&
              std::is_same_v<decltype(HandleWarning), HandleWarningFunc> &&
              std::is_same_v<decltype(GetStdLibDir), GetStdLibDirFunc> &&
              std::is_same_v<decltype(GetItemName), GetItemNameFunc>);
}
