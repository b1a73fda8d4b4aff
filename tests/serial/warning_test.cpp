#include <memblock/serial/warning.h>

#include <memblock/core/subitem.h>

#include "support/raises.h"

#include <vector>

using namespace NKelmic;

namespace {
std::vector<safestring> heard;

SafeValue Pointer(auto* function)
{
    return DataItem(reinterpret_cast<void*>(function));
}
} // namespace

TEST(Warnings, GoToStandardErrorUntilAHookTakesThem)
{
    auto const tell_all = [] {
        Warning(7, "a %s");
        SendAlarmMemBlock(safestring("b"), 4, 0, "");
        SendAlarmMemBlock("c", 3, 0, "here");
        EXPECT_EQ(LogWarnings()(Exception(32, "d")), 32u);
    };
    std::string const lines = "Warning: a %s\nALARM (level 4): b\nALARM (severity 3/5): c\n"
                              "Warning: d\n";
    EXPECT_EQ(StderrOf(tell_all), lines);

    heard.clear();
    EXPECT_EQ(
        MemBlock_DoVerb("set_KELMICwarningfunc", Pointer(+[](unsigned code, char const* text) {
                            heard.push_back(Text("%u %s", code, text));
                        }))
            .GetInt(),
        1);
    MemBlock_DoVerb("set_sendalarmkelmicfunc",
                    Pointer(+[](char const* text, int severity, int code, char const* source) {
                        heard.push_back(Text("%s %d %d %s", text, severity, code, source));
                    }));
    EXPECT_EQ(StderrOf(tell_all), "");
    EXPECT_EQ(heard, (std::vector<safestring>{"7 a %s", "b 4 0 ", "c 3 0 here", "32 d"}));

    for (char const* verb : {"set_kelmicwarningfunc", "set_sendalarmkelmicfunc"})
        MemBlock_DoVerb(verb, Pointer(static_cast<char*>(nullptr)));
    EXPECT_EQ(StderrOf(tell_all), lines);
}

TEST(Warnings, TheHistogramFunctionIsInstalledByItsVerb)
{
    EXPECT_FALSE(g_calldistributionfunc);
    MemBlock_DoVerb("set_calldistributionfunc",
                    Pointer(+[](PMemBlock vector, int, bool) { return vector; }));
    EXPECT_FALSE(g_calldistributionfunc(PMemBlock(), 1, true));
    EXPECT_TRUE(g_calldistributionfunc);
    MemBlock_DoVerb("set_calldistributionfunc", Pointer(static_cast<char*>(nullptr)));
    EXPECT_FALSE(g_calldistributionfunc);
    EXPECT_TRUE(MemBlock_DoVerb("set_nothing", 5).IsUndefined());
    EXPECT_RAISES(MemBlock_DoVerb("set_kelmicwarningfunc", DataItem()), err_value,
                  "Value is undefined, cannot convert to naked pointer.");
}
