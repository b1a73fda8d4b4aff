#include <memblock/serial/loader.h>

#include "support/raises.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

using namespace NKelmic;

TEST(Loader, KeysOfLibrariesBeginWithLib)
{
    std::pair<char const*, char const*> const cases[] = {
        {"kelmic", "libkelmic"},
        {"libkelmic", "libkelmic"},
        {"/a/b/x.so", "/a/b/libx.so"},
        {"/lib/x", "/lib/libx"},
        {"", "lib"},
        {"/a/", "/a/lib"},
    };
    for (auto const& [name, key] : cases)
        EXPECT_EQ(canonic(name), key) << name;
}

TEST(Loader, ShortNamesAreCompletedBeforeLoading)
{
    std::pair<char const*, char const*> const cases[] = {
        {"foo.dll", "libfoo.so"},    {"foo", "libfoo.so"},   {"libfoo.dylib", "libfoo.so"},
        {"foo.so.7", "libfoo.so.7"}, {"/no/foo", "/no/foo"}, {"foo.bar", "libfoo.bar.so"},
        {"./foo.dll", "./foo.dll"},
    };
    for (auto const& [name, file] : cases) {
        std::string const line = StderrOf([&] { EXPECT_FALSE(LoadSharedLib(name, 0)); });
        EXPECT_TRUE(line.starts_with("Warning: couldn't load shared library \"" +
                                     std::string(file) + "\": " + file))
            << line;
    }
}

TEST(Loader, HandlesAreKeptUntilTheyAreFreed)
{
    EXPECT_EQ(GetSharedLibHandle("no such library"), nullptr);
    void* const handle = LoadSharedLib("libutil.so.1", 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(GetSharedLibHandle("libutil.so.1"), handle);
    EXPECT_TRUE(GetSharedLibFileName(handle).ends_with("libutil.so.1"));
    EXPECT_TRUE(FreeSharedLib(handle));
    EXPECT_FALSE(so_cache().contains("libutil.so.1"));
    EXPECT_FALSE(FreeSharedLib(nullptr));
    EXPECT_EQ(StderrOf([] { EXPECT_EQ(GetSharedLibFileName(nullptr), ""); }),
              "Warning:GetSharedLibFileName((nil)) failed: unknown handle\n");
}

TEST(Loader, FilesAreFoundAlongASearchPath)
{
    char folder[] = "/tmp/loader_test_XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    safestring const base = folder;
    std::ofstream((base + "/plain").c_str()) << 1;
    std::ofstream((base + "/versioned.2").c_str()) << 1;
    struct Case {
        safestring name, path, found;
    };
    Case const cases[] = {
        {"plain", "/nowhere:  " + base, base + "/plain"},
        {"plain", base + ":/nowhere", base + "/plain"},
        {"versioned", "::" + base, base + "/versioned.2"},
        {base + "/plain", "", base + "/plain"},
        {base + "/versioned", "/nowhere", base + "/versioned.2"},
        {"missing", base, ""},
        {"plain", "", ""},
        {base + "/missing", base, ""},
        {"", ":", ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name.c_str());
        safestring name = c.name;
        EXPECT_EQ(check_file_found(name, c.path), !c.found.empty());
        EXPECT_EQ(name, c.found.empty() ? c.name : c.found);
    }
    std::remove((base + "/plain").c_str());
    std::remove((base + "/versioned.2").c_str());
    rmdir(folder);
}

TEST(Loader, MonthsAreReadInAnyLetterCase)
{
    EXPECT_EQ(FindMon("jan"), 1);
    EXPECT_EQ(FindMon("Jun"), 6);
    EXPECT_EQ(FindMon("DEC"), 12);
    EXPECT_EQ(FindMon("june"), 0);
    EXPECT_EQ(FindMon(""), 0);
}
