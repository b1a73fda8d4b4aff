#include <memblock/core/deepstack_internal.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

namespace NKelmic {
namespace {

constexpr std::size_t fresh_size = 16 << 20; // address space; only what is touched takes memory
constexpr std::size_t reserve = 256 << 10;   // what one level, with all that it calls, may need

/// Where the rest of the current stack is too little; null: not looked up on this thread yet.
thread_local constinit char* low_mark = nullptr;

char* LowMark(void* bottom, std::size_t size)
{
    return static_cast<char*>(bottom) + std::min(reserve, size / 2);
}

char* LowMarkOfThread()
{
    pthread_attr_t attributes;
    void* bottom = nullptr;
    std::size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getstack(&attributes, &bottom, &size);
        pthread_attr_destroy(&attributes);
    }
    return LowMark(bottom, size);
}

/// The memory of a stack, with a page below it that must not be touched.
class Stack {
public:
    Stack() : guard_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)))
    {
        memory_ = mmap(nullptr, guard_ + fresh_size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
        if (memory_ == MAP_FAILED)
            throw std::bad_alloc();
        mprotect(memory_, guard_, PROT_NONE);
    }
    ~Stack() { munmap(memory_, guard_ + fresh_size); }
    Stack(Stack const&) = delete;
    Stack& operator=(Stack const&) = delete;
    void* Bottom() const { return static_cast<char*>(memory_) + guard_; }

private:
    std::size_t guard_;
    void* memory_;
};

/// One run on a fresh stack. Lies on the stack that it came from. The sanitizers are told of both
/// switches; without them nothing of that is compiled.
struct Run {
    void (*work)(void*);
    void* argument;
    Stack stack;
    ucontext_t outer = {};
    ucontext_t inner = {};
    std::exception_ptr thrown = nullptr; // no exception can pass the first frame of a stack
    void* fake_stack = nullptr;
    void const* outer_bottom = nullptr;
    std::size_t outer_size = 0;
    void* outer_fiber = nullptr;
    void* inner_fiber = nullptr;

    void Enter();
    void Leave();
};

// The thread sanitizer counts calls and returns a fiber each. A function that is called on one
// stack and returns on another must not be counted: the call stacks would run empty or grow.
#define MEMBLOCK_CHANGES_STACK __attribute__((no_sanitize("thread")))

MEMBLOCK_CHANGES_STACK void Run::Enter()
{
#ifdef __SANITIZE_ADDRESS__
    __sanitizer_start_switch_fiber(&fake_stack, stack.Bottom(), fresh_size);
#endif
#ifdef __SANITIZE_THREAD__
    outer_fiber = __tsan_get_current_fiber();
    inner_fiber = __tsan_create_fiber(0);
    __tsan_switch_to_fiber(inner_fiber, 0);
#endif
    swapcontext(&outer, &inner);
#ifdef __SANITIZE_ADDRESS__
    __sanitizer_finish_switch_fiber(fake_stack, nullptr, nullptr);
#endif
#ifdef __SANITIZE_THREAD__
    __tsan_destroy_fiber(inner_fiber);
#endif
}

MEMBLOCK_CHANGES_STACK void Run::Leave()
{
#ifdef __SANITIZE_ADDRESS__
    __sanitizer_start_switch_fiber(nullptr, outer_bottom, outer_size);
#endif
#ifdef __SANITIZE_THREAD__
    __tsan_switch_to_fiber(outer_fiber, 0);
#endif
}

/// The first frame of a fresh stack; returning from it resumes `outer`. A context passes ints
/// only, so the address comes in two halves.
MEMBLOCK_CHANGES_STACK void FirstFrame(unsigned int high, unsigned int low)
{
    auto& run = *reinterpret_cast<Run*>(std::uintptr_t(high) << 32 | low);
#ifdef __SANITIZE_ADDRESS__
    __sanitizer_finish_switch_fiber(nullptr, &run.outer_bottom, &run.outer_size);
#endif
    try {
        run.work(run.argument);
    } catch (...) {
        run.thrown = std::current_exception();
    }
    run.Leave();
}

} // namespace

bool StackIsLow()
{
    if (!low_mark)
        low_mark = LowMarkOfThread();
    return static_cast<char*>(__builtin_frame_address(0)) < low_mark;
}

void RunOnFreshStack(void (*work)(void*), void* argument)
{
    Run run{work, argument, {}};
    getcontext(&run.inner);
    run.inner.uc_stack.ss_sp = run.stack.Bottom();
    run.inner.uc_stack.ss_size = fresh_size;
    run.inner.uc_link = &run.outer;
    auto const address = reinterpret_cast<std::uintptr_t>(&run);
    makecontext(&run.inner, reinterpret_cast<void (*)()>(FirstFrame), 2,
                static_cast<unsigned int>(address >> 32), static_cast<unsigned int>(address));

    char* const outer_mark = low_mark;
    low_mark = LowMark(run.stack.Bottom(), fresh_size);
    run.Enter();
    low_mark = outer_mark;
    if (run.thrown)
        std::rethrow_exception(run.thrown);
}

} // namespace NKelmic
