#include <memblock/core/subitem.h>
#include <memblock/serial/loader.h>
#include <memblock/vector/vector.h>

#include "support/raises.h"
#include "support/testblock.h"

#include <dlfcn.h>

using namespace NKelmic;

namespace {

void* Load(char const* file)
{
    void* const handle = LoadSharedLib(file, 0);
    EXPECT_NE(handle, nullptr);
    return handle;
}

bool Has(safestring const& classname)
{
    return (";" + ListClasses(';') + ";").find(";" + classname + ";") != safestring::npos;
}
} // namespace

TEST(Plugin, ItsClassIsMadeByNameAndLivesInTheHost)
{
    Load(PLUGTRACK);
    EXPECT_FALSE(Has("track"));
    EXPECT_TRUE(RegisterMemBlockLibrary("plugtrack", nullptr, 0));
    EXPECT_TRUE(Has("track") && Has("vector"));
    EXPECT_EQ(ClassDescription("track"), "Track - where something went.\n");

    PMemBlock const track = MemBlock::Factory().GetInstance("TRACK");
    ASSERT_TRUE(track);
    EXPECT_TRUE(MemCast<Vector>(track)) << "a cast in the host to a class of the library";
    EXPECT_RAISES(track->GetSubItem("boom", throw_always), err_request_kind,
                  "This track does not go: " + track->GetDescription());
    bool ok = true;
    CheckOk check(ok);
    EXPECT_TRUE(track->GetSubItem("nothing", check).IsUndefined());
    EXPECT_FALSE(ok);
}

TEST(Plugin, ConversionsGoThroughItByClassName)
{
    Load(PLUGTRACK);
    RegisterMemBlockLibrary("plugtrack", nullptr, 0);
    auto const vector = Vector::CreateFrom(7);
    PMemBlock const track =
        vector->Convert(safestringlist(" speed = 5 ", ','), "track", throw_always);
    ASSERT_TRUE(track);
    EXPECT_STREQ(track->Class(), "track");
    EXPECT_EQ(track->GetSubItem("speed", throw_always).GetInt(), 5);
    EXPECT_EQ(MemCast<Vector>(track)->GetInt(0), 7);
    EXPECT_RAISES(TestBlock::Create()->Convert(safestringlist(), "track", throw_always), err_kind,
                  "Conversion from \"testblock\" to \"track\" is not supported.");
}

TEST(Plugin, ALibraryWithRegisteredClassesStaysMapped)
{
    void* const handle = Load(PLUGTRACK);
    RegisterMemBlockLibrary("plugtrack", nullptr, 0);
    PMemBlock const track = MemBlock::Factory().GetInstance("track");
    EXPECT_TRUE(FreeSharedLib(handle));
    for (int i = 0; i < 8 && dlclose(handle) == 0; ++i) // whoever else held it
        ;
    EXPECT_STREQ(track->Class(), "track");
    EXPECT_TRUE(MemBlock::Factory().GetInstance("track"));
}

TEST(Plugin, LibrariesThatAreNoneAreRefused)
{
    char const* const not_found = "MemBlockFactory::RegisterMemBlockLibrary(): library not found: ";
    char const* const no_table = "MemBlockFactory::RegisterMemBlockLibrary(): Error while calling "
                                 "ExportedClasses() in library: ";
    EXPECT_RAISES(RegisterMemBlockLibrary("plugtrack", nullptr, 0), err_kind,
                  safestring(not_found) + "plugtrack");
    Load(PLUGSILENT); // depends on a library that does export a table
    Load(PLUGFAILING);
    safestring const before = ListClasses(',');
    for (char const* name : {"plugsilent", "plugfailing"}) {
        EXPECT_RAISES(RegisterMemBlockLibrary(name, nullptr, 0), err_kind,
                      safestring(no_table) + name);
        EXPECT_FALSE(MemBlock::Factory().RegisterMemBlockLibrary(name, nullptr, 0, throw_never));
    }
    EXPECT_EQ(ListClasses(','), before);
}

TEST(Plugin, ClassesAreLoadedOnDemandByTheAuxiliaryLoader)
{
    static int calls;
    MemBlockFactory& factory = MemBlock::Factory();
    EXPECT_EQ(factory.LocateAndLoadClass("track"), 2);
    factory.SetAuxLoader([](safestring const& name) {
        ++calls;
        if (!(name == "track") || !LoadSharedLib(PLUGTRACK, 0))
            return false;
        return RegisterMemBlockLibrary("plugtrack", nullptr, 0); // takes the factory's lock
    });
    EXPECT_FALSE(factory.GetInstance("unheard"));
    EXPECT_TRUE(factory.GetInstance("Track"));
    EXPECT_TRUE(factory.GetInstance("track"));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(factory.LocateAndLoadClass("track"), 0);
    factory.SetAuxLoader(nullptr);
    EXPECT_EQ(factory.LocateAndLoadClass("track"), 2);
}

TEST(Plugin, ConstructorsMayLookForLibrariesWhileOtherThreadsDo)
{
    void* const early = Load(PLUGEARLY); // hangs if two locks are taken in different orders
    auto const done = reinterpret_cast<bool (*)()>(GetProcAddress(early, "LookedTwice"));
    ASSERT_TRUE(done);
    EXPECT_TRUE(done());
}

TEST(Plugin, IdentitiesAreReadFromTheLibraryItself)
{
    void* const track = Load(PLUGTRACK);
    void* const silent = Load(PLUGSILENT);
    void* const own = GetSharedLibHandle("memblock");
    ASSERT_NE(own, nullptr);
    int const numbers[][4] = {{3, 1, 4, 15}, {0, 0, 0, 0}, {2, 2, 0, 0}};
    void* const handles[] = {track, silent, own};
    for (int lib = 0; lib < 3; ++lib)
        for (int what = 0; what < 4; ++what)
            EXPECT_EQ(LibVersion(handles[lib], LibVersionWhat(what)), numbers[lib][what]);
    EXPECT_RAISES(LibVersion(track, LibVersionWhat(4)), err_kind,
                  "LibVersion(): invalid what parameter: 4");
    EXPECT_EQ(LibVersion(nullptr, lv_major), 0);

    EXPECT_EQ(LibBuildDate(track), "02.06.2009");
    EXPECT_EQ(LibBuildDate(silent), "");
    EXPECT_EQ(LibBuildDate(own).size(), 10u);
    EXPECT_EQ(GetSharedLibFileName(track), PLUGTRACK);
    EXPECT_EQ(LibInfo(track), PLUGTRACK " [3.1.4.15] (Tracks)");
    EXPECT_EQ(LibInfo(silent), PLUGSILENT " [0.0.0.0]");
    EXPECT_EQ(LibInfo(nullptr), "");
}

TEST(Plugin, ThisLibrarysOwnTableIsKeptApartFromThatOfAPlugin)
{
    ASSERT_NE(dlopen(PLUGTRACK, RTLD_NOW | RTLD_GLOBAL), nullptr); // before the factory is made
    EXPECT_TRUE(Has("vector"));
    EXPECT_FALSE(Has("track"));
}

TEST(Plugin, WritesMakeTheMissingContainersOfAPath)
{
    ClassInfo const table[] = {{"container", []() -> PMemBlock {
                                    auto container = TestBlock::Create();
                                    container->conforms = "container";
                                    return container;
                                }}};
    RegisterMemBlockLibrary("host", table, 1);
    PMemBlock const root = MemBlock::Factory().GetInstance("container");
    EXPECT_TRUE(root->SetSubItem("x.y.z", 5, throw_always));
    EXPECT_EQ(root->GetSubItem("x.y.z", throw_always).GetInt(), 5);
    EXPECT_TRUE(root->GetSubItemMemBlock("x.y", throw_always, "container"));
    EXPECT_TRUE(root->SetSubItem("x.y.w", 6, throw_always));
    EXPECT_EQ(root->GetSubItem("x.y.z", throw_always).GetInt(), 5);
}
