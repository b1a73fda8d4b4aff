#include <memblock/serial/factory.h>

#include <memblock/serial/loader.h>
#include <memblock/vector/vector.h>

#include "support/raises.h"
#include "support/testblock.h"

using namespace NKelmic;

TEST(Factory, MakesThisLibrarysClassesInAnyLetterCase)
{
    ClassInfo const* table = nullptr;
    int count = 0;
    ASSERT_EQ(ExportedClasses(&table, &count), 0);
    for (int i = 0; i < count; ++i) {
        SCOPED_TRACE(table[i].name);
        PMemBlock const object = MemBlock::Factory().GetInstance(table[i].name);
        ASSERT_TRUE(object);
        EXPECT_STRCASEEQ(object->Class(), table[i].name);
        EXPECT_EQ(object->RefCount(), 1);
        EXPECT_EQ(ClassDescription(table[i].name), object->ClassDescription());
    }
    EXPECT_TRUE(MemBlock::Factory().GetInstance("VECTOR").Conforms("vector"));
    EXPECT_FALSE(MemBlock::Factory().GetInstance("no such class"));
    MemBlockCleanup();
    EXPECT_TRUE(MemBlock::Factory().GetInstance("vector")) << "clearing does nothing";
}

TEST(Factory, LaterRegistrationsReplaceTheCreatorAndKeepTheName)
{
    static int made;
    ClassInfo const first[] = {{"Twice", []() -> PMemBlock { return PMemBlock(); }},
                               {nullptr, nullptr}};
    ClassInfo const second[] = {{"tWICE", []() -> PMemBlock {
                                     ++made;
                                     return TestBlock::Create();
                                 }}};
    MemBlockFactory factory;
    EXPECT_TRUE(factory.RegisterMemBlockLibrary("test", first, 2));
    EXPECT_TRUE(factory.RegisterMemBlockLibrary("test", second, 1, throw_never));
    EXPECT_TRUE(factory.RegisterMemBlockLibrary("test", second, 1));
    EXPECT_TRUE(factory.GetInstance("twice"));
    EXPECT_EQ(made, 1);
    safestring const list = factory.ListClasses('|');
    EXPECT_NE(std::string(list.c_str()).find("Twice"), std::string::npos) << list.c_str();
    EXPECT_EQ(std::string(list.c_str()).find("tWICE"), std::string::npos);
}

TEST(Factory, AClassThatTheLoaderBringsIsMadeWhateverItAnswers)
{
    MemBlockFactory& factory = MemBlock::Factory();
    factory.SetAuxLoader([](safestring const& name) {
        ClassInfo const table[] = {
            {nullptr, nullptr}, {name.c_str(), []() -> PMemBlock { return TestBlock::Create(); }}};
        RegisterMemBlockLibrary("test", table, 2);
        return false;
    });
    EXPECT_TRUE(factory.GetInstance("late"));
    factory.SetAuxLoader(nullptr);
}

TEST(Factory, ClassDescriptionsNeverThrow)
{
    ClassInfo const table[] = {
        {"throws", []() -> PMemBlock { Raise(err_kind, "no %s today", "luck"); }},
        {"throws other", []() -> PMemBlock { throw 5; }}};
    RegisterMemBlockLibrary("test", table, 2);
    std::pair<char const*, char const*> const cases[] = {
        {"throws", "Error: exception occurred: no luck today\n"},
        {"throws other", "Error: hardware-reported exception occurred.\n"},
        {"no such class", "Error: class not registered in current process.\n"},
        {"MemBlock", TestBlock::Create()->MemBlock::ClassDescription()},
    };
    for (auto const& [name, text] : cases)
        EXPECT_EQ(ClassDescription(name), text) << name;
}
