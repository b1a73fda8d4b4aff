#include <memblock/serial/loader.h>

#include <memblock/base/raise.h>
#include <memblock/serial/loader_internal.h>

#include <array>
#include <cstdio>
#include <cstring>

extern "C" MorvaneVersionInfo const* GetMorvaneVersion()
{
    return &NKelmic::OwnVersion();
}

namespace NKelmic {
namespace {
constinit MorvaneVersionInfo const own_version{
    2, 2, 0, 0, __DATE__, "2026-11-22", "Data model for image analysis macros"};

MorvaneVersionInfo const* VersionOf(void* handle)
{
    auto const tell = reinterpret_cast<decltype(&GetMorvaneVersion)>(
        GetOwnProcAddress(handle, "GetMorvaneVersion"));
    return tell ? tell() : nullptr;
}
} // namespace

MorvaneVersionInfo const& OwnVersion()
{
    return own_version;
}

int LibVersion(void* handle, LibVersionWhat what)
{
    MorvaneVersionInfo const* const version = VersionOf(handle);
    if (!version)
        return 0;
    switch (what) {
    case lv_major:
        return version->major_no;
    case lv_minor:
        return version->minor_no;
    case lv_build:
        return version->build;
    case lv_revision:
        return version->revision;
    }
    Raise(err_kind, "LibVersion(): invalid what parameter: %d", static_cast<int>(what));
}

safestring LibBuildDate(void* handle)
{
    MorvaneVersionInfo const* const version = VersionOf(handle);
    char month[4];
    int day = 0;
    int year = 0;
    if (!version || !version->build_date ||
        std::sscanf(version->build_date, "%3s %d %d", month, &day, &year) != 3)
        return {};
    char text[40];
    std::snprintf(text, sizeof text, "%02d.%02d.%04d", day, FindMon(month), year);
    return text;
}

safestring LibInfo(void* handle)
{
    if (!handle)
        return {};
    safestring info = GetSharedLibFileName(handle);
    info += Text(" [%d.%d.%d.%d]", LibVersion(handle, lv_major), LibVersion(handle, lv_minor),
                 LibVersion(handle, lv_build), LibVersion(handle, lv_revision));
    MorvaneVersionInfo const* const version = VersionOf(handle);
    if (version && version->product)
        info += Text(" (%s)", version->product);
    return info;
}

int FindMon(safestring const& three_letters)
{
    static constexpr std::array<char const*, 12> months{"jan", "feb", "mar", "apr", "may", "jun",
                                                        "jul", "aug", "sep", "oct", "nov", "dec"};
    for (std::size_t i = 0; i < months.size(); ++i)
        if (three_letters == months[i])
            return static_cast<int>(i) + 1;
    return 0;
}

} // namespace NKelmic
