#include <memblock/core/memblock.h>

#include <memblock/core/childwalk_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/safevalue.h>

#include <algorithm>
#include <vector>

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
    KeepAlive const alive(*this); // the child's place is in this object
    return EntertainPlace(
        child, [&] { return &child; }, v, path, mode);
}

void MemBlock::Traverse(TraverseVisitor& v, TraverseNode const& node)
{
    KeepAlive const alive(*this);
    if (!v.Enters(*this))
        return;
    WithEnoughStack([&] {
        v.VisitStart(node, *this);
        Entertain(v, node, em_traverse);
        if (pimpl_)
            pimpl_->Traverse(v, node);
        v.VisitEnd(node, *this);
    });
}

void MemBlock::SetConst(bool on)
{
    KeepAlive const alive(*this);
    SetConstVisitor visitor(on);
    PMemBlock self(this);
    visitor.Visit(safestring(), self); // here: a class may pass a walk on to what it holds
    Entertain(visitor, safestring(), em_no_self);
}

long long MemBlock::CalcMemUsage() const
{
    MemUsageVisitor visitor;
    const_cast<MemBlock*>(this)->Traverse(visitor, TraverseNode());
    return visitor.Bytes();
}

namespace {

void DeepCopyBelow(MemBlock& root, safestring* report, bool keep_transient = true)
{
    DeepCopier copier(&root, report);
    copier.keeps_transient = keep_transient;
    root.Entertain(copier, safestring(), MemBlock::em_no_self);
    copier.BeginCopying();
    root.Entertain(copier, safestring(), MemBlock::em_no_self);
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

void MakeIndependent(MemBlock& root)
{
    DeepCopyBelow(root, nullptr, false);
}

PMemBlock MemBlock::CloneToBranch(safestring const& path) const
{
    constexpr int branch_mode = 2;
    KeepAlive const alive(*this);
    struct Level {
        PMemBlock object;
        safestring step; // that leads on; empty at the end
    };
    std::vector<Level> levels{{PMemBlock(this), safestring()}};
    DataItem branch;
    for (safestring::size_type from = 0; from < path.size();) {
        auto const dot = std::min(path.find('.', from), path.size()); // as a write will go
        safestring const step = path.substr(from, dot - from);
        from = dot + 1;
        MemBlock const& object = *levels.back().object;
        DataItem const item = object.GetSubItem(step, throw_never);
        bool const leads_on = item.GetType() == it_memblock && item.GetMemory();
        if (leads_on && item.GetMemory().Pointer() == &object)
            continue; // by a step such as "@self"
        // Any other value is in the clone already: to read and write it back might round it.
        if (item.GetType() == it_sharable) {
            branch = item;
            branch.MakeCopy();
        }
        if (leads_on || branch.IsDefined())
            levels.back().step = step;
        if (!leads_on)
            break;
        levels.push_back({item.GetMemory(), safestring()});
    }
    PMemBlock copy;
    for (; !levels.empty(); levels.pop_back()) {
        auto const& [object, step] = levels.back();
        copy = object->DoClone(branch_mode);
        if (!copy)
            continue;
        copy->CopyStickyAttributesFrom(*object);
        if (branch.IsDefined())
            copy->SetSubItem(step, SafeValue(branch), throw_always);
        branch = DataItem(copy);
    }
    return copy;
}

} // namespace NKelmic
