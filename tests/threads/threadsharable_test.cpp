#include <memblock/threads/threadsharable.h>

#include <memblock/core/dataitem.h>
#include <memblock/core/visitor.h>
#include <memblock/serial/serializer.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "support/raises.h"

using namespace NKelmic;

namespace {

typedef ThreadSharablePointer<ThreadSharable> Pointer;

/// A sharable that counts its ends and runs what a test hands in.
struct Probe : ThreadSharable {
    explicit Probe(int* deleted = nullptr) : deleted_(deleted) {}
    ~Probe()
    {
        if (deleted_)
            ++*deleted_;
        if (in_destructor)
            in_destructor(*this);
    }
    Pointer DoClone() const override { return new Probe; }
    bool NotifyBeforeDelete() const override { return notify && notify(*this); }
    std::function<bool(Probe const&)> notify;
    std::function<void(Probe const&)> in_destructor;

private:
    int* deleted_;
};

struct Weak : WeakThreadSharablePointerBase {
    explicit Weak(ThreadSharable* target, std::function<void(Weak&)> on_dispose = {})
        : WeakThreadSharablePointerBase(target), dispose(std::move(on_dispose))
    {
    }
    Weak(Weak const&) = default;
    Weak& operator=(Weak const&) = default;
    ~Weak() { Detach(); }
    void Dispose() override
    {
        ++disposed;
        if (auto const action = dispose) // a copy: it may delete this object
            action(*this);
    }
    int disposed = 0;
    std::function<void(Weak&)> dispose;
};

void DropLast(ThreadSharable* fresh)
{
    Pointer const last(fresh);
}

int Count(Pointer const& p)
{
    return ThreadSharableGetRefCount(p.Pointer());
}

} // namespace

TEST(ThreadSharable, LastPointerDeletesIt)
{
    int deleted = 0;
    {
        Pointer first(new Probe(&deleted));
        Pointer second(first);
        Pointer third;
        third = second;
        EXPECT_EQ(Count(first), 3);
        second = nullptr;
        third = third;
        Pointer moved(std::move(third));
        EXPECT_EQ(third.Pointer(), nullptr);
        EXPECT_EQ(Count(first), 2);
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

TEST(ThreadSharable, DefaultsOfTheVirtualFunctions)
{
    Pointer const p(new Probe);
    EXPECT_STREQ(p->GetDescription().c_str(), "ThreadSharable object");
    EXPECT_TRUE(p->DoVerb("anything", SafeValue(), SafeValue()).IsUndefined());
    // Neither is looked at: the defaults refuse before they would.
    alignas(std::max_align_t) std::byte nothing[sizeof(Formatter) + sizeof(SerializeVisitor)];
    auto& visitor = reinterpret_cast<SerializeVisitor&>(nothing);
    auto const& formatter = reinterpret_cast<Formatter&>(nothing);
    safestring output;
    EXPECT_RAISES(p->Serialize(4, visitor, "a.b", formatter, output), 4096,
                  "Serialization format 4 not supported for: ThreadSharable object");
    char const* end = nullptr;
    EXPECT_RAISES(p->UnSerialize(4, formatter, "", &end), 4096,
                  "Unserialization not supported by: ThreadSharable object");
}

TEST(ThreadSharable, TraverseShowsStartAndEndAndHoldsTheObject)
{
    struct Visitor : TraverseVisitor {
        using TraverseVisitor::VisitEnd;
        using TraverseVisitor::VisitStart;
        void VisitStart(TraverseNode const& node, ThreadSharable&) override
        {
            seen += "start " + node.Path() + ";";
            *holder = nullptr; // a visitor may drop the item that it stands on
        }
        void VisitEnd(TraverseNode const& node, ThreadSharable& s) override
        {
            seen += "end " + node.Path() + " " + s.GetDescription();
        }
        safestring seen;
        Pointer* holder = nullptr;
    } visitor;
    int deleted = 0;
    Pointer p(new Probe(&deleted));
    visitor.holder = &p;
    p->Traverse(visitor, TraverseNode("x"));
    EXPECT_STREQ(visitor.seen.c_str(), "start x;end x ThreadSharable object");
    EXPECT_EQ(deleted, 1);

    Probe local; // nobody's: holding it would delete it
    local.Traverse(visitor, TraverseNode("y"));
}

TEST(ThreadSharable, NotificationThatCapturesAndReturnsTrueKeepsIt)
{
    int deleted = 0, disposed = 0;
    Pointer kept;
    {
        Probe* const probe = new Probe(&deleted);
        Weak weak(probe, [&](Weak&) { ++disposed; });
        probe->notify = [&](Probe const& self) {
            kept = const_cast<Probe*>(&self);
            return true;
        };
        DropLast(probe);
        EXPECT_EQ(deleted, 0);
        EXPECT_EQ(disposed, 1); // weak pointers went before it was asked
        EXPECT_EQ(weak.Get().Pointer(), nullptr);
    }
    ASSERT_NE(kept.Pointer(), nullptr);
    EXPECT_EQ(Count(kept), 1);
    {
        Weak again(kept.Pointer()); // and it has a life of its own again
        EXPECT_EQ(again.Get().Pointer(), kept.Pointer());
        static_cast<Probe*>(kept.Pointer())->notify = {};
        kept = nullptr;
        EXPECT_EQ(again.Get().Pointer(), nullptr);
        EXPECT_EQ(again.disposed, 1);
    }
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(disposed, 1);
}

TEST(ThreadSharable, NotificationThatLeavesNoOwnerDoesNotKeepIt)
{
    auto capture_and_drop = [](Probe const& self) { Pointer(const_cast<Probe*>(&self)); };
    std::pair<char const*, std::function<bool(Probe const&)>> const cases[] = {
        {"true", [](Probe const&) { return true; }},
        {"true, captured and dropped",
         [&](Probe const& self) { return capture_and_drop(self), true; }},
        {"false, captured and dropped",
         [&](Probe const& self) { return capture_and_drop(self), false; }},
    };
    for (auto const& [answer, notify] : cases) {
        int deleted = 0;
        Probe* const probe = new Probe(&deleted);
        probe->notify = notify;
        DropLast(probe);
        EXPECT_EQ(deleted, 1) << answer;
    }
}

TEST(ThreadSharable, CaptureAndDropInTheDestructorDoesNotDeleteItAgain)
{
    int deleted = 0;
    Probe* const probe = new Probe(&deleted);
    probe->in_destructor = [](Probe const& self) {
        self.Capture();
        self.Capture();
        self.Release();
        self.Release();
    };
    DropLast(probe);
    EXPECT_EQ(deleted, 1);
}

TEST(ThreadSharable, ExceptionsAtTheEndAreReportedAndKeptIn)
{
    int deleted = 0;
    Probe* const probe = new Probe(&deleted);
    Weak weak(probe, [](Weak&) { throw 1; });
    probe->in_destructor = [](Probe const&) { throw std::runtime_error("too late"); };
    std::string const report = StderrOf([&] { DropLast(probe); });
    EXPECT_EQ(deleted, 1);
    EXPECT_NE(report.find("an exception was thrown: unknown exception"), std::string::npos);
    EXPECT_NE(report.find("an exception was thrown: too late"), std::string::npos);
}

TEST(ThreadSharablePointer, AssignmentHidesTheOldObjectBeforeItGoes)
{
    Pointer p;
    ThreadSharable* seen_in_destructor = reinterpret_cast<ThreadSharable*>(1);
    Probe* const old = new Probe;
    old->in_destructor = [&](Probe const&) { seen_in_destructor = p.Pointer(); };
    p = old;
    Pointer const next(new Probe);
    p = next;
    EXPECT_EQ(seen_in_destructor, nullptr);
    EXPECT_EQ(p.Pointer(), next.Pointer());
    EXPECT_EQ(Count(next), 2);
}

TEST(ThreadSharablePointer, VolatileFormsDoTheSame)
{
    int deleted = 0;
    {
        Pointer p;
        Pointer volatile& shared = p;
        shared = new Probe(&deleted);
        Pointer other(new Probe(&deleted));
        ThreadSharable* const first = shared.Pointer();
        shared.swap(other);
        EXPECT_EQ(other.Pointer(), first);
        EXPECT_EQ(static_cast<void*>(p), static_cast<void*>(shared));
        EXPECT_STREQ(shared->GetDescription().c_str(), (*shared).GetDescription().c_str());
        shared = other;
        EXPECT_EQ(deleted, 1);
        EXPECT_EQ(Count(other), 2);
    }
    EXPECT_EQ(deleted, 2);
}

TEST(ThreadSharablePointer, MakeCopyClonesTheTargetOfItsClass)
{
    ThreadSharablePointer<Probe> const p(new Probe);
    auto const copy = p.MakeCopy();
    ASSERT_NE(copy.Pointer(), nullptr);
    EXPECT_NE(copy.Pointer(), p.Pointer());
    EXPECT_EQ(ThreadSharableGetRefCount(copy.Pointer()), 1);
    EXPECT_EQ(ThreadSharablePointer<Probe>().MakeCopy().Pointer(), nullptr);
}

TEST(WeakPointer, LosesItsTargetAndIsDisposedOfOnce)
{
    Pointer p(new Probe);
    Weak weak(p.Pointer());
    {
        Pointer const held = weak.Get();
        EXPECT_EQ(held.Pointer(), p.Pointer());
        EXPECT_EQ(Count(p), 2);
        EXPECT_FALSE(weak.Release()); // somebody holds it
        EXPECT_EQ(weak.Get().Pointer(), p.Pointer());
    }
    p = nullptr;
    EXPECT_EQ(weak.Get().Pointer(), nullptr);
    EXPECT_EQ(weak.disposed, 1);
    EXPECT_TRUE(weak.Release());
    EXPECT_EQ(weak.disposed, 1);
}

TEST(WeakPointer, CopiesFollowTheTargetAndAssignmentLeavesTheOldOne)
{
    Pointer a(new Probe), b(new Probe);
    Weak first(a.Pointer());
    Weak second(first);
    Weak third(b.Pointer());
    third = second;
    third = third;
    b = nullptr;
    EXPECT_EQ(third.disposed, 0);
    EXPECT_EQ(third.Get().Pointer(), a.Pointer());
    second = Weak(nullptr);
    a->RemoveWeakPointer(second); // not in its list
    a->RemoveWeakPointer(first);
    EXPECT_EQ(first.Get().Pointer(), nullptr);
    a->AddWeakPointer(first);
    a->AddWeakPointer(first); // once is enough
    a = nullptr;
    EXPECT_EQ(first.disposed + second.disposed + third.disposed, 2);
    EXPECT_EQ(second.disposed, 0);
}

TEST(WeakPointer, DestroyedBeforeItsTargetLeavesTheOthersLinked)
{
    for (int gone = 0; gone < 3; ++gone) {
        Pointer p(new Probe);
        std::unique_ptr<Weak> weak[3];
        for (auto& w : weak)
            w = std::make_unique<Weak>(p.Pointer());
        weak[gone].reset();
        p = nullptr;
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(weak[i] ? weak[i]->disposed : 1, 1) << gone << i;
    }
}

TEST(WeakPointer, DisposalMayDeleteItselfAndOthersOfTheSameTarget)
{
    Pointer p(new Probe);
    int disposed = 0;
    std::vector<std::unique_ptr<Weak>> family;
    for (int i = 0; i < 5; ++i)
        family.push_back(std::make_unique<Weak>(p.Pointer(), [&](Weak&) {
            ++disposed;
            family.clear();
        }));
    p = nullptr;
    EXPECT_EQ(disposed, 1);
    EXPECT_TRUE(family.empty());
}

TEST(WeakPointer, DisposalRunsWithoutLocksAndMayGiveItANewTarget)
{
    Pointer p(new Probe);
    Pointer const other(new Probe);
    bool was_null = false;
    Weak weak(p.Pointer(), [&](Weak& self) {
        was_null = self.Get().Pointer() == nullptr;
        other->AddWeakPointer(self);
    });
    p = nullptr;
    EXPECT_TRUE(was_null);
    EXPECT_EQ(weak.Get().Pointer(), other.Pointer());
}

TEST(WeakPointer, NewTargetMayDieInsideTheDisposalAndTakeItAlong)
{
    Pointer first(new Probe), second(new Probe);
    alignas(Weak) unsigned char room[sizeof(Weak)];
    auto untouched = [&] {
        return std::all_of(room, room + sizeof room, [](int byte) { return byte == 0xAB; });
    };
    int disposed = 0;
    new (room) Weak(first.Pointer(), [&](Weak& self) {
        if (++disposed == 1) {
            second->AddWeakPointer(self);
            second = nullptr; // disposes of it once more, inside of this call
        } else {
            self.~Weak();
            std::memset(room, 0xAB, sizeof room);
        }
    });
    first = nullptr;
    EXPECT_EQ(disposed, 2);
    EXPECT_TRUE(untouched());
}

TEST(WeakPointer, OfAnObjectThatNobodyOwnsIsHarmless)
{
    Weak weak(nullptr);
    {
        Probe local;
        Weak const passing(&local); // goes without a trace
        Weak const copy(passing);
        local.AddWeakPointer(weak);
        EXPECT_EQ(ThreadSharableGetRefCount(&local), 0);
        EXPECT_EQ(weak.disposed, 0);
    }
    EXPECT_EQ(weak.disposed, 1); // a local target takes its leave too
    EXPECT_EQ(weak.Get().Pointer(), nullptr);

    Probe fresh;
    Weak older(&fresh), asked(&fresh), newer(&fresh);
    EXPECT_TRUE(asked.Release()); // itself and what stands behind it
    EXPECT_EQ(older.disposed, 1);
    EXPECT_EQ(asked.disposed, 1);
    EXPECT_EQ(newer.disposed, 0);
}

TEST(WeakPointer, MadeWhileTheTargetDiesIsDisposedOfToo)
{
    for (bool in_destructor : {false, true}) {
        std::unique_ptr<Weak> late;
        Probe* const probe = new Probe;
        auto make = [&](Probe const& self) {
            late = std::make_unique<Weak>(const_cast<Probe*>(&self));
            EXPECT_EQ(late->Get().Pointer(), nullptr);
            return false;
        };
        if (in_destructor)
            probe->in_destructor = make;
        else
            probe->notify = make;
        DropLast(probe);
        EXPECT_EQ(late->disposed, 1);
        EXPECT_EQ(late->Get().Pointer(), nullptr);
    }
}

TEST(WeakPointer, AHundredThousandOfOneTargetNeedNoStack)
{
    constexpr int count = 100'000;
    Pointer p(new Probe);
    std::vector<std::unique_ptr<Weak>> weak;
    for (int i = 0; i < count; ++i)
        weak.push_back(std::make_unique<Weak>(p.Pointer()));
    p = nullptr;
    int disposed = 0;
    for (auto const& w : weak)
        disposed += w->disposed;
    EXPECT_EQ(disposed, count);
}

TEST(AssignThreadId, TakesItemsOfAnyKind)
{
    DataItem undefined, number(3), no_block{PMemBlock()};
    for (DataItem* item : {&undefined, &number, &no_block})
        EXPECT_NO_THROW(AssignThreadId(*item, 7));
}
