#include <memblock/core/subitem.h>
#include <memblock/serial/loader.h>
#include <memblock/vector/vector.h>

#include "support/raises.h"

#include <dlfcn.h>

using namespace NKelmic;

// A function of the host that happens to bear the name of one of the engine's.
extern "C" int HandleWarning(unsigned int, char const*)
{
    ADD_FAILURE() << "the host is not the engine";
    return 99;
}

namespace {
void ExpectNoService()
{
    EXPECT_EQ(HandleWarningMemBlock(3, "x"), 0);
    EXPECT_EQ(LoadAllStdLibsMemBlock(), 2050);
    EXPECT_EQ(GetItemName1(Vector::CreateFrom(1).Pointer()), "");
}
} // namespace

TEST(Engine, ServicesAreMissingWithoutItAndThereOnceItIsLoaded)
{
    EXPECT_EQ(GetSharedLibHandle("kelmic"), nullptr);
    ExpectNoService();
    EXPECT_RAISES(GetStdLibDir1(1), err_kind, "GetSharedLibHandle(\"kelmic\") failed.");
    EXPECT_EQ(GetProcAddress(nullptr, "HandleWarning"), nullptr);

    void* const engine = dlopen(ENGINE, RTLD_NOW | RTLD_LOCAL); // by the host, behind our back
    ASSERT_NE(engine, nullptr) << dlerror();
    EXPECT_EQ(GetSharedLibHandle("kelmic"), engine);
    EXPECT_EQ(GetSharedLibHandle("Kelmic"), engine);
    EXPECT_EQ(HandleWarningMemBlock(3, "A"), 3 + 'A');
    EXPECT_EQ(LoadAllStdLibsMemBlock(), 11);
    EXPECT_EQ(GetStdLibDir1(1), "/the/standard/directory");
    EXPECT_EQ(GetStdLibDir1(2), "");
    EXPECT_EQ(GetItemName1(Vector::CreateFrom(1).Pointer()), "vector");
    EXPECT_EQ(GetItemName1(nullptr), "");

    dlclose(engine); // the handle that was found keeps it
    EXPECT_EQ(HandleWarningMemBlock(4, "A"), 4 + 'A');
}

TEST(Engine, OneWithoutTheFunctionsGivesNoService)
{
    ASSERT_NE(dlopen(ENGINE_WITHOUT_FUNCTIONS, RTLD_NOW | RTLD_LOCAL), nullptr) << dlerror();
    EXPECT_NE(GetSharedLibHandle("kelmic"), nullptr);
    ExpectNoService();
    EXPECT_RAISES(GetStdLibDir1(1), err_kind, "GetProcAddress(h, \"GetStdLibDir\") failed.");
}
