#include <memblock/threads/threadsharable.h>

#include <boost/thread/barrier.hpp>
#include <gtest/gtest.h>
#include <memory>

#include "jobs.h"

using namespace NKelmic;

namespace {

typedef ThreadSharablePointer<ThreadSharable> Pointer;

struct Target : ThreadSharable {
    static inline std::atomic<int> alive{0};
    Target() { ++alive; }
    ~Target()
    {
        value = -1;
        --alive;
    }
    Pointer DoClone() const override { return new Target; }
    int value = 7; // read by who got hold of it: a dead one shows
};

struct Weak : WeakThreadSharablePointerBase {
    explicit Weak(ThreadSharable* target) : WeakThreadSharablePointerBase(target) {}
    Weak(Weak const& o) : WeakThreadSharablePointerBase(o) {}
    Weak& operator=(Weak const& o)
    {
        WeakThreadSharablePointerBase::operator=(o);
        return *this;
    }
    ~Weak() { Detach(); }
    void Dispose() override { ++disposed; }
    std::atomic<int> disposed{0};
};

bool Alive(Pointer const& p)
{
    return dynamic_cast<Target&>(*p).value == 7;
}

int const rounds = Rounds(1500);

} // namespace

TEST(WeakPointerStress, GetAgainstTheLastReleaseNeverFindsADeadTarget)
{
    constexpr int getters = 3;
    Pointer current;
    std::unique_ptr<Weak> weak[4];
    std::atomic<int> dead{0}, found{0};
    boost::barrier start(getters + 1), end(getters + 1);
    boost::thread_group group;
    for (int t = 0; t < getters; ++t)
        group.create_thread([&, t] {
            for (int round = 0; round < rounds; ++round) {
                start.wait();
                Pointer last;
                for (int i = 0; i < 20; ++i)
                    if (Pointer const p = weak[(t + i) % 4]->Get(); p.Pointer()) {
                        last = p; // this thread may hold the last reference
                        ++found;
                        dead += !Alive(p);
                    }
                last = nullptr;
                end.wait();
            }
        });
    for (int round = 0; round < rounds; ++round) {
        current = new Target;
        for (auto& w : weak)
            w = std::make_unique<Weak>(current.Pointer());
        start.wait();
        current = nullptr;
        end.wait();
        ASSERT_EQ(Target::alive, 0);
        for (auto& w : weak)
            ASSERT_EQ(w->disposed, 1);
    }
    group.join_all();
    EXPECT_EQ(dead, 0);
    EXPECT_GT(found, 0);
}

TEST(WeakPointerStress, WeakPointersComeAndGoWhileTheirTargetDies)
{
    Pointer shared;
    std::unique_ptr<Weak> seed;
    boost::barrier start(3), end(3);
    auto come_and_go = [&] {
        for (int round = 0; round < rounds; ++round) {
            start.wait();
            for (int i = 0; i < 5; ++i)
                if (Pointer const held = seed->Get(); held.Pointer()) {
                    Weak const copy(*seed);
                    Weak other(nullptr);
                    other = copy;
                } else {
                    Weak orphan(nullptr);
                    orphan = *seed;
                }
            end.wait();
        }
    };
    boost::thread first(come_and_go), second(come_and_go);
    for (int round = 0; round < rounds; ++round) {
        shared = new Target;
        seed = std::make_unique<Weak>(shared.Pointer());
        start.wait();
        shared = nullptr;
        end.wait();
        ASSERT_EQ(Target::alive, 0);
        ASSERT_EQ(seed->disposed, 1);
    }
    first.join();
    second.join();
}

TEST(WeakPointerStress, DestructorWaitsForADisposalInAnotherThread)
{
    // The disposal that another thread runs is that of the only target, or of one that the disposal
    // of the first target gave it, and that dies while this call still runs.
    struct Slow : WeakThreadSharablePointerBase {
        Slow(Pointer& first, Pointer& second)
            : WeakThreadSharablePointerBase(first.Pointer()), later(second)
        {
        }
        ~Slow()
        {
            Detach();
            intact = false;
        }
        void Dispose() override
        {
            if (later.Pointer() && !moved.exchange(true)) {
                later->AddWeakPointer(*this);
                killer = boost::thread([&last = later] { last = nullptr; });
                WaitUntil([&] { return *step > 0; });
                return;
            }
            auto const told = step; // outlives this object
            *told = 1;
            for (int i = 0; i < 1000; ++i)
                boost::this_thread::yield();
            *told = intact ? 2 : 3;
        }
        Pointer& later;
        boost::thread killer;
        std::shared_ptr<std::atomic<int>> const step = std::make_shared<std::atomic<int>>(0);
        std::atomic<bool> intact{true}, moved{false};
    };
    for (int round = 0; round < 200; ++round) {
        Pointer first(new Target), later(round % 2 ? new Target : nullptr);
        auto slow = std::make_unique<Slow>(first, later);
        auto const step = slow->step;
        boost::thread killer;
        if (later.Pointer())
            first = nullptr;
        else
            slow->killer = boost::thread([&] { first = nullptr; });
        WaitUntil([&] { return *step > 0; });
        killer.swap(slow->killer);
        slow.reset();
        EXPECT_EQ(*step, 2);
        killer.join();
    }
}

TEST(ThreadSharablePointerStress, ReadersSeeOldNullOrNewDuringAssignment)
{
    Pointer const a(new Target), b(new Target);
    Pointer member(a);
    Pointer volatile& shared = member;
    std::atomic<bool> done{false};
    std::atomic<int> strange{0};
    boost::thread reader([&] {
        while (!done) {
            ThreadSharable* const p = shared.Pointer();
            strange += p && p != a.Pointer() && p != b.Pointer();
        }
    });
    for (int i = 0; i < 10 * rounds; ++i)
        shared = i % 2 ? a : b;
    done = true;
    reader.join();
    EXPECT_EQ(strange, 0);
}
