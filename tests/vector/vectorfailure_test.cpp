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
template <class Fail>
void FailEach(DataType type, bool shared, Work const& work)
{
    std::string before, after;
    {
        auto const v = Sample(type);
        before = TextOf(v);
        work(v);
        after = TextOf(v);
    }
    for (unsigned long n = 1; n < 1000; ++n) {
        long const blocks = memtest::LiveBlocks();
        bool failed = true;
        {
            auto const v = Sample(type);
            auto const clone = shared ? VectorOf(v->Clone(true)) : DerivedPointer<Vector>();
            bool done = false;
            {
                Fail fail(n);
                try {
                    work(v);
                    done = true;
                } catch (std::exception const&) {
                }
                failed = fail.Failed();
            }
            EXPECT_EQ(TextOf(v), done ? after : before) << "failure of allocation " << n;
            safestring message;
            EXPECT_TRUE(v->Consistent(message, false)) << message.c_str();
            if (clone) {
                EXPECT_EQ(TextOf(clone), before);
            }
        }
        EXPECT_EQ(memtest::LiveBlocks(), blocks) << "failure of allocation " << n;
        if (!failed)
            return;
    }
}

} // namespace

TEST(VectorFailure, AFailingAllocationLeavesTheVectorAsItWasAndLeaksNothing)
{
    int const order[] = {5, 3, 1};
    std::pair<char const*, Work> const works[] = {
        {"resize up", [](auto const& v) { v->ResizeVector(50, true, true); }},
        {"erase", [](auto const& v) { v->Erase(1, 2); }},
        {"shift up", [](auto const& v) { v->ShiftVector(3); }},
        {"shift down", [](auto const& v) { v->ShiftVector(-3); }},
        {"append", [](auto const& v) { v->Append(Sample(v->ElemType())); }},
        {"append itself", [](auto const& v) { v->Append(v); }},
        {"rearrange", [&](auto const& v) { v->Rearrange(order, 3, 4, throw_always); }},
        {"slice", [](auto const& v) { v->CloneSlice(1, 3); }},
        {"deep clone", [](auto const& v) { v->Clone(false); }},
    };
    for (DataType type : {Vector::Int, Vector::String, Vector::PolyType, Vector::PMemory}) {
        for (bool shared : {false, true}) {
            for (auto const& [name, work] : works) {
                SCOPED_TRACE(testing::Message() << name << ", " << Vector::TypeToString(type)
                                                << (shared ? ", shared" : ""));
                FailEach<memtest::FailAllocations>(type, shared, work);
                FailEach<memtest::FailNews>(type, shared, work);
            }
        }
    }
}

TEST(VectorFailure, AFailingAllocationLeavesInsertionsAndConversionsUndone)
{
    std::pair<char const*, Work> const works[] = {
        {"insert", [](auto const& v) { v->Insert(2, DataItem(1)); }},
        {"append of another type", [](auto const& v) { v->Append(Doubles({0.5})); }},
        {"to text", [](auto const& v) { v->SetElemType(Vector::String, true, false); }},
        {"to double", [](auto const& v) { v->SetElemType(Vector::Double, true, false); }},
        {"factor", [](auto const& v) { v->EnsureFactor(0.5); }},
    };
    for (bool shared : {false, true}) {
        for (auto const& [name, work] : works) {
            SCOPED_TRACE(name);
            FailEach<memtest::FailAllocations>(Vector::Int, shared, work);
            FailEach<memtest::FailNews>(Vector::Int, shared, work);
        }
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
        for (unsigned long n = 1; n < 100; ++n) {
            long const blocks = memtest::LiveBlocks();
            long const news = memtest::LiveNews();
            bool failed = false;
            {
                memtest::FailAllocations fail(n);
                try {
                    work();
                } catch (std::exception const&) {
                }
                failed = fail.Failed();
            }
            EXPECT_EQ(memtest::LiveBlocks(), blocks);
            EXPECT_EQ(memtest::LiveNews(), news);
            if (!failed)
                break;
        }
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
