#include <memblock/threads/jobpool.h>

#include <memblock/base/raise.h>
#include <memblock/threads/jobpoolimpl.h>
#include <memblock/threads/mutex.h>

#include <support/raises.h>
#include <support/vectors.h>

#include <gtest/gtest.h>
#include <map>
#include <optional>

#include "jobs.h"

using namespace NKelmic;

namespace {

struct Pool : JobPool {
    using JobPool::JobPool;
    void HandleNotify(int job, int code, DataItem& value) override
    {
        EXPECT_EQ(boost::this_thread::get_id(), home);
        ++codes[code];
        notes.push_back(Text("%d:%d:%s", job, code, value).c_str());
        if (on_notify)
            on_notify(code);
    }
    DataItem HandleConsult(int job, int code, DataItem& value) override
    {
        EXPECT_EQ(boost::this_thread::get_id(), home);
        return on_consult ? on_consult(value) : DataItem(value.GetInt() + code + job);
    }
    void Add(Task::Work work) { ::Add(*this, std::move(work)); }

    boost::thread::id home = boost::this_thread::get_id();
    std::map<int, int> codes;
    std::vector<std::string> notes;
    std::function<void(int)> on_notify;
    std::function<DataItem(DataItem&)> on_consult;
};

// Every behaviour that doesn't need a second thread holds for both kinds of pool.
class JobPoolOf : public testing::TestWithParam<int> {
protected:
    Threads const threads{GetParam()};
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Threads, JobPoolOf, testing::Values(0, 1, 3));

TEST_P(JobPoolOf, ResultsComeInJobOrderAndMoreJobsMayFollow)
{
    Pool pool;
    for (int round = 1; round <= 2; ++round) {
        for (int i = 0; i < 100; ++i)
            pool.Add([](Task& t) { return DataItem(t.GetIndex() * 3); });
        pool.Wait();
        ASSERT_EQ(pool.GetJobCount(), 100 * round);
        for (int i = 0; i < 100 * round; ++i) {
            ASSERT_EQ(pool.GetJobStatus(i), 3);
            ASSERT_EQ(pool.GetResults()[i].GetInt(), i * 3);
        }
    }
    EXPECT_EQ(pool.Wait(1), 0);
    EXPECT_EQ(pool.GetJobStatus(-1), 0);
    EXPECT_EQ(pool.GetJobStatus(200), 0);
    EXPECT_EQ(pool.codes[jp_notify_started], 200);
    EXPECT_EQ(pool.codes[jp_notify_succeeded], 200);
    EXPECT_TRUE(NoneLeft());
}

TEST_P(JobPoolOf, WhateverAJobThrowsBecomesItsResult)
{
    std::pair<Task::Work, char const*> const cases[] = {
        {[](Task&) -> DataItem { Raise(err_state, "bad %d", 7); }, "bad 7"},
        {[](Task&) -> DataItem { throw std::runtime_error("runtime"); }, "runtime"},
        {[](Task&) -> DataItem { throw "words"; }, "words"},
        {[](Task&) -> DataItem { throw 5; }, "Unknown error"}};
    Pool pool(true);
    for (auto const& [work, text] : cases)
        pool.Add(work);
    pool.Add([](Task&) { return DataItem(1); });
    pool.Wait();
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(pool.GetJobStatus(i), 4);
        EXPECT_STREQ(pool.GetResults()[i].GetString().c_str(), cases[i].second);
    }
    EXPECT_EQ(pool.GetJobStatus(4), 3);
    EXPECT_EQ(pool.codes[jp_notify_failed], 4);
}

TEST_P(JobPoolOf, AFailureAbortsThePoolAndDropsWhatHasNotStarted)
{
    {
        Pool pool;
        pool.Add([](Task&) -> DataItem { throw "boom"; });
        for (int i = 0; i < 50; ++i)
            pool.Add([](Task& t) {
                for (;;) { // ends by the abort alone
                    t.CheckAbortion();
                    boost::this_thread::yield();
                }
                return DataItem();
            });
        EXPECT_RAISES(pool.Wait(), err_notify, "JobPool: some jobs did not complete.");
        char const* const text = "Parallel job index 0: boom";
        EXPECT_RAISES(pool.Wait(), err_notify, text);
        EXPECT_RAISES(pool.GetResults(), err_notify, text);
        Task unwanted([](Task&) { return DataItem(); });
        EXPECT_RAISES(pool.AddNewJob(&unwanted), err_notify, text);
        EXPECT_EQ(pool.GetJobStatus(0), 4);
        EXPECT_EQ(pool.codes[jp_notify_failed], 1);
    }
    EXPECT_TRUE(NoneLeft());
}

TEST_P(JobPoolOf, TheLastJobMayFailWithoutHarmToTheWait)
{
    Pool pool;
    pool.Add([](Task&) -> DataItem { throw "late"; });
    EXPECT_NO_THROW(pool.Wait());
    EXPECT_RAISES(pool.Wait(), err_notify, "Parallel job index 0: late");
}

TEST_P(JobPoolOf, NotesAndQuestionsReachTheWaitingThread)
{
    Pool pool;
    for (int i = 0; i < 40; ++i)
        pool.Add([](Task& t) {
            DataItem note("half way"), question(1000);
            t.Notify(7, note);
            EXPECT_TRUE(note.IsUndefined());
            return t.Consult(20, question);
        });
    pool.Wait();
    EXPECT_EQ(pool.codes[7], 40);
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(pool.GetResults()[i].GetInt(), 1020 + i);
    DataItem question(1);
    EXPECT_EQ(pool.Consult(5, question).GetInt(), 5); // by the creator: at once, as job -1
}

TEST_P(JobPoolOf, AHandlerMayAddJobsAndWaitAgain)
{
    Pool pool;
    int left = 30;
    pool.on_notify = [&](int code) {
        if (code != jp_notify_succeeded || left == 0)
            return;
        --left;
        pool.Add([](Task&) { return DataItem(1); });
        if (left % 10 == 0)
            pool.Wait(1);
    };
    pool.Add([](Task&) { return DataItem(1); });
    pool.Wait();
    EXPECT_EQ(pool.GetJobCount(), 31);
    EXPECT_EQ(pool.codes[jp_notify_succeeded], 31);
}

TEST_P(JobPoolOf, AnAnswerMayWaitForAllJobsButThoseThatAsk)
{
    Task::Work const plain = [](Task&) { return DataItem(1); };
    for (bool by_pool : {false, true}) {
        Pool pool;
        int answering = 0;
        pool.on_consult = [&](DataItem& question) {
            ++answering;
            EXPECT_EQ(pool.Wait(1), answering) << "those that ask";
            Pool other; // needs a worker too
            other.Add(plain);
            other.Wait();
            --answering;
            return question;
        };
        for (int i = 0; i < 12; ++i) // more than there are workers, and others behind them
            pool.Add(i % 3 == 2 ? plain
                     : !by_pool ? Task::Work(Ask)
                                : [&](Task&) {
                                      DataItem question(1);
                                      return pool.Consult(1, question);
                                  });
        pool.Wait();
        for (auto const& result : pool.GetResults())
            EXPECT_EQ(result.GetInt(), 1);
    }
}

TEST_P(JobPoolOf, AJobMayWaitForAllOthers)
{
    JobPool pool;
    std::atomic<bool> open{false};
    std::atomic<int> left{-1};
    Add(pool, [&](Task&) {
        WaitUntil([&] { return open.load(); });
        left = pool.Wait(1);
        return DataItem();
    });
    for (int i = 0; i < 5; ++i)
        Add(pool, [](Task&) { return DataItem(); });
    open = true;
    WaitUntil([&] { return left >= 0 || GetParam() == 0; });
    pool.Wait();
    EXPECT_EQ(left, 1) << "itself";
}

TEST_P(JobPoolOf, AWaitThatAnAbortEndsCountsTheJobsThatItDeleted)
{
    Pool pool;
    pool.on_notify = [&](int code) {
        if (code != jp_notify_started)
            return;
        pool.Abort("stopped");
        EXPECT_RAISES(pool.GetResults(), err_notify, "stopped"); // deletes them
    };
    for (int i = 0; i < 20; ++i)
        pool.Add([](Task&) { return DataItem(); });
    EXPECT_RAISES(pool.Wait(), err_notify, "JobPool: some jobs did not complete.");
}

namespace {

std::function<void()> const throwers[] = {[] { Raise(err_state, "by a handler"); },
                                          [] { throw std::runtime_error("by a handler"); },
                                          [] { throw 5; }};

/// Which of these `Wait` throws for; -1: it throws nothing.
int ThrownBy(JobPool& pool)
{
    try {
        pool.Wait();
        return -1;
    } catch (Exception const& e) {
        return e.Code() == unsigned(err_state) ? 0 : -2;
    } catch (std::runtime_error const&) {
        return 1;
    } catch (int) {
        return 2;
    }
}

} // namespace

TEST_P(JobPoolOf, WhatHandlersThrowLeavesTheWaitAndTheJobsGoOn)
{
    constexpr int note = 7, question = 0, all = -1; // beside the pool's own codes
    for (bool go_on : {false, true})
        for (int at : {int(jp_notify_started), note, question, int(jp_notify_succeeded),
                       int(jp_notify_failed), all})
            for (int kind : {0, 1, 2}) {
                SCOPED_TRACE(Text("at %d, kind %d, %d", at, kind, int(go_on)).c_str());
                bool const fails = at == jp_notify_failed;
                Pool pool(go_on);
                pool.on_notify = [&](int code) {
                    if (at == code || at == all)
                        throwers[kind]();
                };
                pool.on_consult = [&](DataItem& value) {
                    pool.on_notify(question);
                    return value;
                };
                pool.Add([&](Task& t) {
                    DataItem text("half way"), asked(1000);
                    t.Notify(note, text);
                    DataItem const answer = t.Consult(20, asked);
                    return fails ? throw "boom" : answer;
                });
                EXPECT_EQ(ThrownBy(pool), kind);
                EXPECT_EQ(pool.GetJobStatus(0), fails ? 4 : at == jp_notify_succeeded ? 3 : 1);
                for (int more = at == all ? 3 : 0; more > 0; --more)
                    EXPECT_EQ(ThrownBy(pool), kind);
                if (fails && !go_on) {
                    EXPECT_RAISES(pool.Wait(), err_notify, "Parallel job index 0: boom");
                    continue;
                }
                EXPECT_EQ(ThrownBy(pool), -1);
                EXPECT_EQ(pool.GetJobStatus(0), fails ? 4 : 3);
                DataItem const expected = fails                         ? DataItem("boom")
                                          : at == question || at == all ? DataItem()
                                                                        : DataItem(1000);
                EXPECT_EQ(Text("%s", pool.GetResults()[0]), Text("%s", expected));
                int const end = fails ? jp_notify_failed : jp_notify_succeeded;
                ASSERT_EQ(pool.notes.size(), 3u);
                for (int i = 0; int code : {int(jp_notify_started), note, end})
                    EXPECT_EQ(pool.notes[i++].find(Text("0:%d:", code).c_str()), 0u);
                pool.on_notify = nullptr;
                pool.Add([](Task&) { return DataItem(1); });
                EXPECT_EQ(ThrownBy(pool), -1) << "later jobs are none the worse";
                EXPECT_EQ(pool.GetResults()[1].GetInt(), 1);
            }
}

TEST_P(JobPoolOf, ValuesOfAThreadLastForItsJobsOfThisPoolOnly)
{
    Pool first, second;
    for (Pool* pool : {&first, &second})
        for (int i = 0; i < 20; ++i)
            pool->Add([pool](Task& t) {
                DataItem const before = t.GetThreadSpecificItem("OWNER");
                t.SetThreadSpecificItem("owner", DataItem(static_cast<void*>(pool)));
                return DataItem(before.IsUndefined() || before.GetPointer() == pool ? 1 : 0);
            });
    for (Pool* pool : {&first, &second}) {
        pool->Wait();
        for (auto const& ok : pool->GetResults())
            EXPECT_EQ(ok.GetInt(), 1);
    }
}

TEST_P(JobPoolOf, APoolInsideAJobRunsOnTheThreadOfThatJob)
{
    Pool pool;
    for (int i = 0; i < 8; ++i)
        pool.Add([](Task&) {
            std::optional<Threads> others; // which must not count
            if (GetParam() == 0)
                others.emplace(3);
            unsigned const home = GetCurrentThreadId();
            JobPool inner;
            std::atomic<int> here{0};
            for (int k = 0; k < 10; ++k)
                Add(inner, [&, k](Task& t) {
                    here += t.GetThreadId() == home && GetCurrentThreadId() == home;
                    return DataItem(k);
                });
            inner.Wait();
            return DataItem(here.load());
        });
    pool.Wait();
    for (auto const& result : pool.GetResults())
        EXPECT_EQ(result.GetInt(), 10);
}

TEST(JobPool, KeepsFewJobsQueuedAndHandsOutNoMoreThanItsThreads)
{
    static std::atomic<int> posted;
    struct Posted : Task {
        using Task::Task;
        void OnPosted() override { ++posted; }
    };
    posted = 0;
    Threads const threads(2);
    std::atomic<int> running{0}, most{0};
    std::atomic<bool> open{false};
    Pool pool;
    pool.on_notify = [&](int) {
        if (open || pool.codes[jp_notify_started] < 2)
            return;
        EXPECT_EQ(posted, 2 + 2 * 2) << "what runs, and twice as many in the queue";
        open = true;
    };
    for (int i = 0; i < 200; ++i)
        pool.AddNewJob(new Posted([&](Task&) {
            int const now = ++running;
            for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
            }
            WaitUntil([&] { return open.load(); });
            boost::this_thread::yield();
            --running;
            return DataItem(now);
        }));
    pool.Wait();
    EXPECT_LE(most, 2);
}

TEST(JobPool, ResultsThatShareObjectsWithTheJobArriveAsCopies)
{
    for (int n : {0, 2}) {
        Threads const threads(n);
        PMemBlock const kept = Bytes({1, 2, 3});
        JobPool pool;
        Add(pool, [&](Task&) { return DataItem(kept); });
        if (n == 0) // the job runs inside Wait, on a thread that does not read the result
            boost::thread([&] { pool.Wait(); }).join();
        pool.Wait();
        EXPECT_NE(pool.GetResults()[0].GetMemory(), kept);
        EXPECT_EQ(kept->RefCount(), 1);
    }
}

TEST(JobPool, ResultsThatCallersShareAreDroppedByTheThreadThatDropsThePool)
{
    Threads const threads(2);
    for (int round = Rounds(500); round > 0; --round) {
        PMemBlock kept;
        {
            Pool pool;
            pool.Add([](Task&) { return DataItem(Bytes({1, 2, 3})); });
            pool.Wait();
            kept = pool.GetResults()[0].GetMemory();
        } // the worker may still hold what the pool was made of
        EXPECT_EQ(kept->RefCount(), 1);
    }
}

TEST(JobPool, AJobThatThrowsWhenItIsPostedRunsAllTheSame)
{
    struct Stubborn : Task {
        Stubborn() : Task([](Task&) { return DataItem(1); }) {}
        void OnPosted() override { throw std::runtime_error("not now"); }
    };
    Threads const threads(1);
    Pool pool;
    for (int i = 0; i < 10; ++i) // some go in at once, the others from the waiting thread
        pool.AddNewJob(new Stubborn);
    pool.Wait();
    EXPECT_EQ(pool.codes[jp_notify_succeeded], 10);
}

TEST(JobPool, AbortFromAnotherThreadEndsTheWaitAndEveryQuestion)
{
    Threads const threads(2);
    {
        Pool pool;
        std::atomic<bool> asked{false};
        for (int i = 0; i < 30; ++i)
            pool.Add(Ask);
        pool.on_consult = [&](DataItem&) {
            asked = true;
            return DataItem();
        };
        boost::thread stopper([&] {
            WaitUntil([&] { return asked.load(); });
            pool.Abort("stopped");
        });
        try {
            pool.Wait();
        } catch (Exception const& e) {
            EXPECT_EQ(e.Code(), unsigned(err_notify));
        }
        stopper.join();
        EXPECT_RAISES(pool.Wait(), err_notify, "stopped");
    }
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPool, TheJobsOfAnAbortedPoolAreDroppedByItsCreator)
{
    ASSERT_TRUE(NoneLeft());
    Threads const threads(1);
    std::atomic<bool> started{false}, open{false};
    {
        Pool pool;
        for (int i = 0; i < 20; ++i)
            pool.Add([&](Task&) {
                started = true;
                WaitUntil([&] { return open.load(); });
                return DataItem();
            });
        WaitUntil(
            [&] { return started.load(); }); // a worker that comes later ends its jobs at once
        boost::thread([&] {
            pool.Abort("stopped");
            pool.Abort(""); // leaves the message
            EXPECT_RAISES(pool.GetResults(), err_notify, "stopped");
        }).join();
        int const handed_out = 1 + 2; // these end by themselves, unless they run already
        EXPECT_GE(Task::alive, 20 - handed_out);
        EXPECT_RAISES(pool.GetResults(), err_notify, "stopped");
        EXPECT_LE(Task::alive, handed_out);
        open = true;
    }
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPool, APoolThatGoesReleasesThoseWhoAskIt)
{
    Threads const threads(2);
    for (int round = 0; round < 50; ++round) {
        Pool pool; // nobody waits
        for (int i = 0; i < 10; ++i)
            pool.Add(Ask);
        boost::this_thread::yield();
    }
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPool, AHeadlessPoolAnswersQuestionsAndIsNeverWaitedFor)
{
    for (int n : {0, 2}) {
        Threads const threads(n);
        Pool pool(true, true);
        std::atomic<int> ran{0};
        for (int i = 0; i < 20; ++i)
            pool.Add([&](Task& t) {
                DataItem note(2);
                t.Notify(1, note);
                ran += Ask(t).IsUndefined();
                return DataItem();
            });
        EXPECT_EQ(pool.Wait(1), 0x7FFFFFFF);
        EXPECT_TRUE(NoneLeft());
        EXPECT_EQ(ran, 20);
        EXPECT_TRUE(pool.notes.empty());
    }
}

TEST(JobPool, TheEnvironmentCountsOnlyWhenItBeginsWithADigit)
{
    int cores = 0, desired = 0, busy = 0, threads = 0;
    Threads const restored(1);
    setenv("MORVANE_NUM_THREADS", "x4", 1);
    Pool const pool;
    JobPool::GetInfo(cores, desired, busy, threads);
    EXPECT_EQ(desired, cores);
    EXPECT_EQ(threads, cores);
}

TEST(JobPool, RefusesAMissingJobAndAClone)
{
    Pool pool;
    EXPECT_RAISES(pool.AddNewJob(nullptr), err_precondition, "JobPool: no job was given.");
    ThreadSharablePointer<JobPool> const held(new JobPool);
    EXPECT_EQ(held.MakeCopy().Pointer(), held.Pointer());
    auto const impl = JobPoolImpl::Create(false, 0, false);
    EXPECT_RAISES(impl->DoClone(), err_request, "JobPoolImpl cloning attempted");
}

TEST(Job, WithoutAPoolHasNobodyToTellOrAsk)
{
    Task task([](Task&) { return DataItem(); });
    DataItem value(1);
    task.CheckAbortion();
    task.Notify(1, value);
    EXPECT_TRUE(task.Consult(1, value).IsUndefined());
    task.SetThreadSpecificItem("a", DataItem(1));
    EXPECT_TRUE(task.GetThreadSpecificItem("a").IsUndefined());
}
