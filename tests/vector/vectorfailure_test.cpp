#include <memblock/base/number.h>
#include <memblock/vector/convert.h>

#include <support/failing_alloc.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

#include <functional>

using namespace NKelmic;

namespace {

using Work = std::function<void(DerivedPointer<Vector> const&)>;

char const long_text[] = "a text too long to stay inside the object that holds it";

DerivedPointer<Vector> Sample(DataType type)
{
    auto v = Vector::Create(6, type, true, 0, 1.0);
    for (unsigned int i = 0; i < 6; ++i) {
        if (type == Vector::PMemory)
            v->SetElem(i, PMemBlock(Ints({static_cast<int>(i)})));
        else if (IsInSet<ObjectTypes>(type))
            v->SetElem(i, safestring(long_text) + str(i));
        else
            v->SetElem(i, static_cast<int>(i));
    }
    return v;
}

/// Let each allocation of the work fail in turn: the vector is as it was or as it should be.
void FailIn(DataType type, bool shared, Work const& work)
{
    auto const sample = Sample(type);
    std::string const before = TextOf(sample);
    work(sample);
    std::string const after = TextOf(sample);
    long const blocks = memtest::LiveBlocks();
    memtest::FailEach([&](auto const& attempt) {
        {
            auto const v = Sample(type);
            auto const clone = shared ? VectorOf(v->Clone(true)) : DerivedPointer<Vector>();
            bool const done = attempt([&] { work(v); });
            EXPECT_EQ(TextOf(v), done ? after : before);
            safestring message;
            EXPECT_TRUE(v->Consistent(message, false)) << message.c_str();
            if (clone) {
                EXPECT_EQ(TextOf(clone), before);
            }
        }
        EXPECT_EQ(memtest::LiveBlocks(), blocks);
    });
}

} // namespace

TEST(VectorFailure, AFailingAllocationLeavesTheVectorAsItWasAndLeaksNothing)
{
    using Types = std::vector<DataType>;
    Types const each{Vector::Int, Vector::String, Vector::PolyType, Vector::PMemory};
    Types const ints{Vector::Int};
    int const order[] = {5, 3, 1};
    std::tuple<char const*, Types, Work> const works[] = {
        {"resize up", each, [](auto const& v) { v->ResizeVector(50, true, true); }},
        {"resize down", each, [](auto const& v) { v->ResizeVector(2, true, true); }},
        {"erase", each, [](auto const& v) { v->Erase(1, 2); }},
        {"shift up", each, [](auto const& v) { v->ShiftVector(3); }},
        {"shift down", each, [](auto const& v) { v->ShiftVector(-3); }},
        {"append", each, [](auto const& v) { v->Append(Sample(v->ElemType())); }},
        {"append itself", each, [](auto const& v) { v->Append(v); }},
        {"rearrange", each, [&](auto const& v) { v->Rearrange(order, 3, 4, throw_always); }},
        {"slice", each, [](auto const& v) { v->CloneSlice(1, 3); }},
        {"deep clone", each, [](auto const& v) { v->Clone(false); }},
        {"insert", ints, [](auto const& v) { v->Insert(2, DataItem(1)); }},
        {"append of another type", ints, [](auto const& v) { v->Append(Doubles({0.5})); }},
        {"to text", ints, [](auto const& v) { v->SetElemType(Vector::String, true, false); }},
        {"to double", ints, [](auto const& v) { v->SetElemType(Vector::Double, true, false); }},
        {"factor", ints, [](auto const& v) { v->EnsureFactor(0.5); }},
    };
    for (auto const& [name, types, work] : works)
        for (DataType const type : types)
            for (bool const shared : {false, true}) {
                SCOPED_TRACE(testing::Message() << name << ", " << Vector::TypeToString(type)
                                                << (shared ? ", shared" : ""));
                FailIn(type, shared, work);
            }
}

TEST(VectorFailure, CreationLeaksNothing)
{
    std::pair<char const*, std::function<void()>> const works[] = {
        {"texts", [] { Vector::Create(3, Vector::String, true, 0, 1.0); }},
        {"numbers", [] { Vector::Create(3, Vector::Int, true, 2, 1.0); }},
        {"one text", [] { Vector::CreateFrom(long_text); }},
        {"sequence", [] { Vector::MakeSequence("1", "9"); }},
        {"taken text",
         [] {
             safestring text(long_text);
             Vector::CreateFromSafeString(text);
         }},
    };
    for (auto const& [name, work] : works) {
        SCOPED_TRACE(name);
        long const blocks = memtest::LiveBlocks(), news = memtest::LiveNews();
        memtest::FailEach([&](auto const& attempt) {
            attempt(work);
            EXPECT_EQ(memtest::LiveBlocks(), blocks);
            EXPECT_EQ(memtest::LiveNews(), news);
        });
    }
}

TEST(VectorFailure, AWriteWithoutACacheAllocatesNothing)
{
    auto const v = Ints({1, 2, 3});
    memtest::AllocationCount count;
    v->SetElem(0, 5);
    v->SetElem(1, 2.5);
    v->SetElem(2, 7LL);
    EXPECT_EQ(count.All(), 0u);
}
