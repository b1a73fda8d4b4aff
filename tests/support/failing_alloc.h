#ifndef MEMBLOCK_TESTS_SUPPORT_FAILING_ALLOC_H
#define MEMBLOCK_TESTS_SUPPORT_FAILING_ALLOC_H

/// Count allocations, and make a chosen one fail.
///
/// The test program is linked so that each call of the allocation family from any object file but
/// its own goes through the functions in failing_alloc.cpp first. That takes the linker's --wrap
/// on the mangled names, as options of the test program (failing_alloc.cpp has to be in it):
///
///     -Wl,--wrap=_ZN9Ntarnwick9mb_mallocEm,--wrap=_ZN9Ntarnwick9mb_callocEmm
///     -Wl,--wrap=_ZN9Ntarnwick10mb_reallocEPvm,--wrap=_ZN9Ntarnwick7mb_freeEPv
///
/// It works on the object library linked into the program, not through the shared library, and
/// `&mb_free` is the wrapped function for everybody. Without the options the scopes below end the
/// program with a message, so that no test passes for the wrong reason.

#include <exception>

namespace memtest {

/// Number of blocks of the `mb_malloc` family that are alive now, over all threads.
long LiveBlocks();

/// Number of blocks from the global `operator new` that are alive now, over all threads.
long LiveNews();

/// Counts the allocations that the current thread makes while the scope is open. Scopes nest.
class AllocationCount {
public:
    AllocationCount();
    unsigned long Mallocs() const; ///< mb_malloc, mb_calloc, mb_realloc; failed ones too
    unsigned long News() const;    ///< global operator new, what the library's strings use
    unsigned long All() const { return Mallocs() + News(); }

private:
    unsigned long mallocs_, news_;
};

enum class Allocator { family, op_new };

/// While the scope is open, the n-th call (from 1) of an allocator by the current thread fails; the
/// calls before and after it work. `Failed()`: there were so many.
template <Allocator A>
class Failing {
public:
    explicit Failing(unsigned long n);
    ~Failing();
    Failing(Failing const&) = delete;
    Failing& operator=(Failing const&) = delete;
    bool Failed() const;

private:
    unsigned long outer_;
};
using FailAllocations = Failing<Allocator::family>; ///< mb_malloc, mb_calloc, mb_realloc give null
using FailNews = Failing<Allocator::op_new>; ///< the global operator new throws std::bad_alloc

/// Let each allocation of a kind fail in turn: run `round` with its first one failing, then with
/// its second, until it makes fewer. `round` is given a function that runs the part of it in which
/// they fail, and returns whether that went through:
///
///     FailEach<FailNews>([](auto const& attempt) {
///         DataItem item(5);
///         bool const done = attempt([&] { item = "a long text ..."; });
///         EXPECT_EQ(item.GetType(), done ? it_string : it_int);
///     });
template <class Fail>
void FailEach(auto const& round)
{
    bool failed = true;
    unsigned long n = 0;
    while (failed) {
        ++n;
        round([&](auto const& work) {
            Fail const fail(n);
            bool done = false;
            try {
                work();
                done = true;
            } catch (std::exception const&) {
            }
            failed = fail.Failed();
            return done;
        });
    }
}
void FailEach(auto const& round) // of both kinds
{
    FailEach<FailAllocations>(round);
    FailEach<FailNews>(round);
}

} // namespace memtest

#endif // MEMBLOCK_TESTS_SUPPORT_FAILING_ALLOC_H
