#include <memblock/core/safevalue.h>
#include <memblock/serial/factory.h>

#include "support/raises.h"
#include "support/testblock.h"

using namespace NKelmic;

namespace {

// Builds itself from any object that it knows, and keeps what it was told.
class Target : public TestBlock {
public:
    explicit Target(char const* name) { class_name = name; }
    PMemBlock ConvertFrom(PMemBlock source, ConvertOptions const& options) const override
    {
        if (!source.Conforms(accepts.c_str()))
            return {};
        auto result = DerivedPointer<Target>(new Target(Class()));
        result->items["level"] = options.GetValue("level", "none");
        result->items["source"] = safestring(source->Class());
        return result;
    }
    PMemBlock ConvertTo(safestring const& name) const override
    {
        return name == turns_into ? PMemBlock(new Target(turns_into.c_str())) : PMemBlock();
    }
    bool AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                       ThrowHandlerFunc handler) const override
    {
        if (key == "refused") {
            Report(handler, err_request, "Argument refused by %s", Class());
            return false;
        }
        return TestBlock::AddConvertArg(key, value, options, handler);
    }
    safestring accepts = class_name;
    safestring turns_into = "nothing";
};

void RegisterTargets()
{
    ClassInfo const table[] = {{"open",
                                []() -> PMemBlock {
                                    DerivedPointer<Target> target(new Target("open"));
                                    target->accepts = "memblock";
                                    return target;
                                }},
                               {"closed", []() -> PMemBlock { // knows only its own class
                                    DerivedPointer<Target> target(new Target("closed"));
                                    target->accepts = "closed";
                                    return target;
                                }}};
    RegisterMemBlockLibrary("test", table, 2);
}

safestringlist Args(char const* text)
{
    return safestringlist(text, ',');
}
} // namespace

TEST(Convert, ArgumentsAreTrimmedAndTyped)
{
    auto const block = TestBlock::Create();
    ConvertOptions options;
    EXPECT_TRUE(
        block->ConvertArgs(Args(" a = 5 ,b=5.5,c=b, flag ,,  ,d=x=y,A2=0x10,e=,big=99999999999"),
                           options, throw_always));
    std::tuple<char const*, ItemType, char const*> const cases[] = {
        {"a", it_int, "5"},        {"B", it_double, "5.5"},           {"c", it_shortstring, "b"},
        {"flag", it_int, "1"},     {"d", it_shortstring, "x=y"},      {"a2", it_int, "16"},
        {"e", it_shortstring, ""}, {"big", it_double, "99999999999"},
    };
    for (auto const& [key, type, text] : cases) {
        DataItem const value = options.GetValue(key, {});
        EXPECT_EQ(value.GetType(), type) << key;
        EXPECT_EQ(value.GetString(), text) << key;
    }
    EXPECT_TRUE(options.GetValue("", {}).IsUndefined());
    EXPECT_TRUE(block->ConvertArgs(Args("a=6"), options, throw_always));
    EXPECT_EQ(options.GetValue("a", {}).GetInt(), 6) << "the later value counts";
}

TEST(Convert, AClassConvertsToItselfByItsOwnArguments)
{
    DerivedPointer<Target> const source(new Target("shape"));
    source->accepts = "shape";
    for (char const* name : {"", "SHAPE"}) {
        PMemBlock const result = source->Convert(Args("level=3"), name, throw_always);
        EXPECT_EQ(result->GetSubItem("level", throw_always).GetInt(), 3);
        EXPECT_FALSE(result == source);
    }
    source->accepts = "nothing";
    EXPECT_RAISES(source->Convert(Args(""), "", throw_always), err_kind,
                  "Representation conversion failed for class \"shape\".");
    EXPECT_RAISES(TestBlock::Create()->Convert(Args("x"), "testblock", throw_always), err_kind,
                  "Representation conversion failed for class \"testblock\".");
    EXPECT_EQ(source->RefCount(), 1);
}

TEST(Convert, TheTargetIsAskedFirstAndThenTheSource)
{
    RegisterTargets();
    DerivedPointer<Target> const source(new Target("shape"));
    PMemBlock const direct = source->Convert(Args("level=high"), "Open", throw_always);
    EXPECT_EQ(direct->GetSubItem("source", throw_always).GetString(), "shape");
    EXPECT_EQ(direct->GetSubItem("level", throw_always).GetString(), "high");

    EXPECT_RAISES(source->Convert(Args(""), "closed", throw_always), err_kind,
                  "Conversion from \"shape\" to \"closed\" is not supported.");
    class ToClosed : public Target {
    public:
        ToClosed() : Target("shape") {}
        PMemBlock ConvertTo(safestring const& name) const override
        {
            return MemBlock::Factory().GetInstance(name);
        }
    };
    PMemBlock const willing(new ToClosed);
    PMemBlock const turned = willing->Convert(Args("level=2"), "closed", throw_always);
    EXPECT_STREQ(turned->Class(), "closed");
    EXPECT_EQ(turned->GetSubItem("source", throw_always).GetString(), "closed");
    EXPECT_EQ(turned->GetSubItem("level", throw_always).GetInt(), 2);
}

TEST(Convert, FailuresGoToTheHandlerAndLeaveNothing)
{
    RegisterTargets();
    auto const source = TestBlock::Create();
    std::tuple<char const*, char const*, unsigned, char const*> const cases[] = {
        {"", "unheard", err_kind,
         "The class \"unheard\" has not been registered, unable to convert object to that class."},
        {"", "closed", err_kind, "Conversion from \"testblock\" to \"closed\" is not supported."},
        {"refused=1", "open", err_request, "Argument refused by open"},
    };
    for (auto const& [arguments, name, code, text] : cases) {
        EXPECT_RAISES(source->Convert(Args(arguments), name, throw_always), code, text);
        EXPECT_FALSE(source->Convert(Args(arguments), name, throw_never));
        bool ok = true;
        CheckOk check(ok);
        source->Convert(Args(arguments), name, check);
        EXPECT_FALSE(ok);
    }
    TestBlock local; // owned by nobody
    EXPECT_TRUE(local.Convert(Args(""), "open", throw_always));
    EXPECT_EQ(local.RefCount(), 0);
}
