#ifndef MEMBLOCK_CORE_ATTEMPT_INTERNAL_H
#define MEMBLOCK_CORE_ATTEMPT_INTERNAL_H

#include <memblock/base/exception.h>
#include <memblock/base/safestring.h>

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

/// Do what appends to a text; if it raises, the text is as it was.
template <class Work>
void AppendWhole(Ntarnwick::safestring& output, Work&& work)
{
    auto const before = output.size();
    try {
        work();
    } catch (...) {
        output.resize(before);
        throw;
    }
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_ATTEMPT_INTERNAL_H
