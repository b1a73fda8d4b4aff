#ifndef MEMBLOCK_CORE_DEEPSTACK_INTERNAL_H
#define MEMBLOCK_CORE_DEEPSTACK_INTERNAL_H

#include <type_traits>

namespace NKelmic {

/// Tell if this thread has little stack left.
bool StackIsLow();

/// Run `work(argument)` on a stack of its own, within this thread, and drop the stack afterwards.
/// What the work throws comes out here. Throws `std::bad_alloc` if no stack is to be had.
void RunOnFreshStack(void (*work)(void*), void* argument);

/// Run one level of a recursion that is as deep as the data is.
///
/// A level costs a test as long as there is stack left; then it continues on a fresh one. So
/// objects may be nested as deeply as memory allows, on threads with small stacks too.
template <class Work>
void WithEnoughStack(Work&& work)
{
    if (!StackIsLow()) {
        work();
        return;
    }
    using Plain = std::remove_reference_t<Work>;
    RunOnFreshStack([](void* w) { (*static_cast<Plain*>(w))(); }, &work);
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_DEEPSTACK_INTERNAL_H
