#ifndef MEMBLOCK_CORE_CHILDWALK_INTERNAL_H
#define MEMBLOCK_CORE_CHILDWALK_INTERNAL_H

#include <memblock/core/deepstack_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/visitor.h>

namespace NKelmic {

/// Visit a child and then what is below it, as `MemBlock::EntertainChild` does.
///
/// The visit may remove the child, put another value in its place, or move the place itself.
/// So `find()` looks for it afterwards: where the pointer is now, or null if there is none.
/// Returns false if the visitor stops the walk.
template <class Find>
bool EntertainPlace(PMemBlock& child, Find&& find, MemBlockVisitor& v, safestring const& path,
                    MemBlock::entertainmode_t mode)
{
    if (mode == MemBlock::em_no_attr)
        return true;
    bool go_on = true;
    WithEnoughStack([&] {
        int const answer = v.Visit(path, child);
        go_on = answer != MemBlockVisitor::stop;
        if (!go_on || answer == MemBlockVisitor::skip_children)
            return;
        PMemBlock* const place = find();
        if (!place || !*place)
            return;
        MemBlock& present = **place;
        KeepAlive const alive(present); // whatever becomes of the place from here on
        // The child itself has just been visited, under its own name.
        go_on = present.Entertain(v, v.ReadsPaths() ? path : safestring(),
                                  mode == MemBlock::em_no_self_no_attr ? MemBlock::em_no_attr
                                                                       : MemBlock::em_no_self);
    });
    return go_on;
}

/// Put `by` in the place of a child, for which the parent need not have a key that can be set.
///
/// step: the key that reads it, which decides where the parent holds the child in several places.
/// False, and nothing has changed, if the parent's own walk does not come to it.
bool ReplaceChild(MemBlock& parent, MemBlock const& child, PMemBlock const& by,
                  safestring const& step);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_CHILDWALK_INTERNAL_H
