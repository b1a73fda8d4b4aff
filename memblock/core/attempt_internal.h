#ifndef MEMBLOCK_CORE_ATTEMPT_INTERNAL_H
#define MEMBLOCK_CORE_ATTEMPT_INTERNAL_H

#include <memblock/core/keytable.h>

namespace NKelmic {

/// Do what may raise; a failure goes to the handler, and the answer is undefined, null or false.
template <class Work>
auto Attempt(ThrowHandlerFunc handler, Work&& work) -> decltype(work())
{
    try {
        return work();
    } catch (Exception const& e) {
        Throw(e, handler);
        return {};
    }
}

/// Stands before a handler that may throw, so that it hears of each failure once: what it throws
/// passes every `Attempt` on the way up.
class OnceHandler final : public ThrowHandlerBase {
public:
    explicit OnceHandler(ThrowHandlerFunc outer) : outer_(outer) {}
    unsigned int operator()(Exception const& e) override
    {
        if (&e == thrown_) // an `Attempt` has caught it and hands it on
            throw;
        try {
            return outer_(e);
        } catch (Exception const& thrown) {
            thrown_ = &thrown;
            throw;
        }
    }
    bool DoVerb(verb_t verb) override { return outer_.DoVerb(verb); }

private:
    ThrowHandlerFunc outer_;
    Exception const* thrown_ = nullptr; // compared only: it may be gone
};

/// The `Attempt` of a public door, which objects of any class are reached through: `work(handler)`
/// may report to its handler, and may raise.
template <class Work>
auto AttemptAtDoor(ThrowHandlerFunc handler, Work&& work) -> decltype(work(handler))
{
    if (handler == throw_always) // what is raised goes up anyway
        return work(handler);
    if (handler == throw_never)
        return Attempt(handler, [&] { return work(handler); });
    OnceHandler once(handler);
    return Attempt(once, [&] { return work(once); });
}

/// The value of a key of a class's table.
template <class T>
DataItem ReadKey(Key<T> const& row, T const& object, ThrowHandlerFunc handler)
{
    return Attempt(handler, [&] { return row.read(object, handler); });
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_ATTEMPT_INTERNAL_H
