#ifndef MEMBLOCK_BASE_APPENDWHOLE_INTERNAL_H
#define MEMBLOCK_BASE_APPENDWHOLE_INTERNAL_H

#include <memblock/base/safestring.h>

namespace Ntarnwick {

/// Do what appends to a text; if it raises, the text is as it was.
template <class Work>
void AppendWhole(safestring& output, Work&& work)
{
    auto const before = output.size();
    try {
        work();
    } catch (...) {
        output.resize(before);
        throw;
    }
}

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_APPENDWHOLE_INTERNAL_H
