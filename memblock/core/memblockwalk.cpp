#include <memblock/core/memblock.h>

#include <memblock/base/text.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/safevalue.h>
#include <memblock/core/visitor.h>

namespace NKelmic {

bool MemBlock::Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode)
{
    if (mode == em_traverse) {
        if (lg_type_ != 0) {
            DataItem type(LgType2String(lg_type_));
            v.Visit(TraverseNode(TraverseNode(path), "@type").Path(), type);
        }
        return true;
    }
    KeepAlive const alive(*this);
    if (mode != em_no_attr && pimpl_ &&
        !pimpl_->Entertain(v, path, mode == em_no_self_no_attr ? em_no_attr : em_all))
        return false;
    if (mode == em_no_self_no_attr || mode == em_no_self)
        return true;
    PMemBlock self(this);
    return v.Visit(path, self) != MemBlockVisitor::stop;
}

bool MemBlock::EntertainChild(PMemBlock& child, MemBlockVisitor& v, safestring const& path,
                              entertainmode_t mode)
{
    if (mode == em_no_attr)
        return true;
    bool go_on = true;
    WithEnoughStack([&] {
        int const answer = v.Visit(path, child);
        if (answer == MemBlockVisitor::stop)
            go_on = false;
        else if (answer != MemBlockVisitor::skip_children && child)
            // The child itself has just been visited, under its own name.
            go_on = child->Entertain(v, path, mode == em_no_self_no_attr ? em_no_attr : em_no_self);
    });
    return go_on;
}

void MemBlock::Traverse(TraverseVisitor& v, TraverseNode const& node)
{
    if (!v.Enters(*this))
        return;
    WithEnoughStack([&] {
        KeepAlive const alive(*this);
        v.VisitStart(node, *this);
        Entertain(v, node, em_traverse);
        if (pimpl_)
            pimpl_->Traverse(v, node);
        v.VisitEnd(node, *this);
    });
}

void MemBlock::SetConst(bool on)
{
    SetConstVisitor visitor(on);
    Entertain(visitor, safestring(), em_all);
}

long long MemBlock::CalcMemUsage() const
{
    MemUsageVisitor visitor;
    const_cast<MemBlock*>(this)->Traverse(visitor, TraverseNode());
    return visitor.Bytes();
}

namespace {

void DeepCopyBelow(MemBlock& root, safestring* report)
{
    DeepCopier copier(&root, report);
    root.Entertain(copier, safestring(), MemBlock::em_no_self);
    copier.BeginCopying();
    root.Entertain(copier, safestring(), MemBlock::em_all);
}

} // namespace

void MemBlock::MakeDeepCopy()
{
    DeepCopyBelow(*this, nullptr);
}

void MemBlock::MakeDeepCopy(safestring& report)
{
    DeepCopyBelow(*this, &report);
}

PMemBlock MemBlock::CloneToBranch(safestring const& path) const
{
    constexpr int branch_mode = 2;
    KeepAlive const alive(*this);
    PMemBlock copy = DoClone(branch_mode);
    if (!copy)
        return copy;
    copy->CopyStickyAttributesFrom(*this);
    if (path.empty())
        return copy;
    auto const dot = find_smart_skip_brackets_and_parens(path, ".", 0);
    safestring const step = path.substr(0, dot);
    DataItem branch = GetSubItem(step, throw_never);
    if (branch.IsUndefined()) // storing it would erase
        return copy;
    if (branch.GetType() == it_memblock && branch.MemoryRef()) {
        safestring const rest = dot == safestring::npos ? safestring() : path.substr(dot + 1);
        branch = DataItem(branch.MemoryRef()->CloneToBranch(rest));
    } else {
        branch.MakeCopy();
    }
    copy->SetSubItem(step, SafeValue(branch), throw_always);
    return copy;
}

} // namespace NKelmic
