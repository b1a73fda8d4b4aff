#include "support/failing_alloc.h"
#include "support/raises.h"

#include <memblock/base/alloc.h>
#include <memblock/base/logbase.h>
#include <memblock/base/raise.h>

#include <stdexcept>
#include <vector>

using namespace Ntarnwick;

namespace {

struct Described {};
int descriptions = 0;

safestring TextArg(Described const&)
{
    ++descriptions;
    return "{described}";
}

struct Derived : Exception {
    Derived() : Exception(16384, "derived") {}
    void Raise() const override { throw *this; }
};

} // namespace

TEST(Exception, CarriesCodeTextAndExtra)
{
    int extra = 0;
    Exception const e(err_state, "some text", &extra);
    Exception const copy(e);
    EXPECT_EQ(copy.Code(), 256u);
    EXPECT_STREQ(copy.what(), "some text");
    EXPECT_EQ(copy.Extra(), &extra);
    EXPECT_RAISES(detail::Throw("Cannot do: ", "this"), err_value, "Cannot do: this");
    EXPECT_RAISES(ThrowAssertException("file.cpp", 12, "a == b"), err_request,
                  "Assertion failed: a == b, file file.cpp, line 12");
}

TEST(ThrowHandler, StockHandlersThrowOrIgnore)
{
    EXPECT_EQ(Throw(Exception(4, "x"), throw_never), 4u);
    EXPECT_RAISES(Throw(Exception(4, "x"), throw_always), 4, "x");
    EXPECT_THROW(Throw(Derived(), throw_always), Derived); // the whole of it
    EXPECT_EQ(ThrowHandlerFunc(throw_never), ThrowHandlerFunc(throw_never));
    EXPECT_NE(ThrowHandlerFunc(throw_never), ThrowHandlerFunc(throw_always));
    EXPECT_FALSE(ThrowHandlerFunc(throw_always).DoVerb(ThrowHandlerBase::verb_only_fact));
}

TEST(Report, BuildsItsTextOnlyForWhomReadsIt)
{
    descriptions = 0;
    Reports keep;
    Report(keep, err_kind, "Not good: %s, %d%%", Described(), 7);
    ASSERT_EQ(keep.texts.size(), 1u);
    EXPECT_STREQ(keep.texts[0].c_str(), "Not good: {described}, 7%");
    EXPECT_EQ(descriptions, 1);
    EXPECT_RAISES(Raise(err_request, "%s!", Described()), 4096, "{described}!");

    descriptions = 0;
    bool ok = true;
    CheckOk check(ok);
    memtest::AllocationCount count;
    Report(check, err_kind, "Not good, and told at a length that needs an allocation: %s",
           Described());
    Report(throw_never, err_kind, "Not good, and told at a length that needs an allocation: %s",
           Described());
    EXPECT_FALSE(ok);
    EXPECT_EQ(descriptions, 0);
    EXPECT_EQ(count.All(), 0u);
    EXPECT_TRUE(check.DoVerb(ThrowHandlerBase::verb_only_fact));
    EXPECT_FALSE(check.DoVerb(ThrowHandlerBase::verb_no_backcompat));
}

TEST(LogBase, LinesOfTheBaseReachTheCallbackThroughTheFilter)
{
    struct Sink : LogBase {
        std::vector<safestring> lines;
        subsys_t subsys = 0;
        void Log(subsys_t from, int, safestring const& message) override
        {
            subsys = from;
            lines.push_back(message);
            try { // a failure inside the callback must not come round again
                Throw(Exception(1, "inner"), throw_always);
            } catch (Exception const&) {
            }
            throw std::runtime_error("swallowed");
        }
    } sink;
    auto fail = [] { EXPECT_RAISES(Throw(Exception(32, "lost"), throw_always), 32, "lost"); };

    SetLoggerCallbackBase(&sink);
    fail(); // nothing passes before a filter is set
    EXPECT_TRUE(sink.lines.empty());
    SetLoggerFilter(~0u, 9);
    fail();
    ASSERT_EQ(sink.lines.size(), 1u);
    EXPECT_STREQ(sink.lines[0].c_str(), "Exception (code 32): lost");
    EXPECT_EQ(sink.subsys, 8u);
    unsigned long volatile too_much = ~0ul; // volatile: the compiler would warn of it
    EXPECT_EQ(mb_malloc(too_much), nullptr);
    ASSERT_EQ(sink.lines.size(), 2u);
    EXPECT_STREQ(sink.lines[1].c_str(), "Cannot allocate 1 times 18446744073709551615 bytes");
    EXPECT_EQ(sink.subsys, 4u);
    SetLoggerFilter(~8u, 9);
    fail();
    SetLoggerFilter(~0u, 1);
    fail();
    SetLoggerFilter(~0u, 9);
    SetLoggerCallbackBase(nullptr);
    fail();
    SetLoggerFilter(0, 0);
    EXPECT_EQ(sink.lines.size(), 2u);
}
