#include <memblock/vector/vectorforms_internal.h>

#include <memblock/core/deepstack_internal.h>

namespace NKelmic {

thread_local constinit OnTheWay* OnTheWay::top_ = nullptr;

bool OnTheWay::Is(Vector const& v, void const* visitor)
{
    for (OnTheWay const* level = top_; level; level = level->outer_)
        if (level->vector_ == &v && level->visitor_ == visitor)
            return true;
    return false;
}

safestring ElementExpressions(Vector const& v)
{
    safestring text;
    for (unsigned int i = 0; i < v.Length(); ++i) {
        if (i > 0)
            text += ',';
        DataItem const item = v.GetDataItemWithFactor(static_cast<int>(i));
        // A macro reads "none" as the null object; an undefined value has no expression for one.
        bool const null_object = v.ElemType() == Vector::PMemory && item.IsUndefined();
        text += null_object ? safestring("none") : item.GetExpression();
    }
    return text;
}

safestring VectorExpression(Vector const& v)
{
    if (OnTheWay::Is(v)) // as objects without an expression of their own
        return v.MemBlock::ResolveSubItem("@expression", throw_always).GetString();
    // Before the elements are entered: one of them may lead back here.
    OnTheWay const mark(v);
    safestring text = "vec(";
    WithEnoughStack([&] { text += ElementExpressions(v); });
    text += ')';
    return text;
}

safestring ElementName(unsigned int i)
{
    return Text("[%u]", i);
}

} // namespace NKelmic
