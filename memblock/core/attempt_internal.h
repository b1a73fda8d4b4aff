#ifndef MEMBLOCK_CORE_ATTEMPT_INTERNAL_H
#define MEMBLOCK_CORE_ATTEMPT_INTERNAL_H

#include <memblock/base/exception.h>

namespace NKelmic {

/// Do what may raise; a failure goes to the handler, and the answer is undefined, null or false.
template <class Work>
auto Attempt(Ntarnwick::ThrowHandlerFunc handler, Work&& work) -> decltype(work())
{
    try {
        return work();
    } catch (Ntarnwick::Exception const& e) {
        Throw(e, handler);
        return {};
    }
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_ATTEMPT_INTERNAL_H
