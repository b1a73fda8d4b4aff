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

namespace {

/// Counts the places of an object right below another one, and may put something else in one.
class ChildReplacer : public MemBlockVisitor {
public:
    ChildReplacer(MemBlock const& child, PMemBlock const& by, int place)
        : child_(&child), by_(by), place_(place)
    {
        reads_paths_ = false;
    }
    using MemBlockVisitor::Visit;
    int Visit(safestring const&, PMemBlock& block) override
    {
        if (block.Pointer() == child_ && places_++ == place_)
            block = by_;
        return skip_children;
    }
    bool NeedsValidData() override { return false; }
    int Run(MemBlock& parent)
    {
        parent.Entertain(*this, safestring(), MemBlock::em_no_self);
        return places_;
    }

private:
    MemBlock const* child_; // compared only: it may be gone
    PMemBlock by_;
    int place_;
    int places_ = 0;
};

} // namespace

bool ReplaceChild(MemBlock& parent, MemBlock const& child, PMemBlock const& by,
                  safestring const& step)
{
    constexpr int no_place = -1, most = 64; // each place costs a walk over all children
    PMemBlock const alive(&child);
    int const places = ChildReplacer(child, by, no_place).Run(parent);
    for (int place = 0; place < places && places <= most; ++place) {
        ChildReplacer(child, by, place).Run(parent);
        if (places == 1)
            return true;
        DataItem const found = parent.GetSubItem(step, throw_never);
        if (found.GetType() == it_memblock && found.GetMemory() == by)
            return true;
        ChildReplacer(*by, alive, 0).Run(parent); // another key's: back to what it was
    }
    return false;
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
        MemBlock const* const found =
            item.GetType() == it_memblock ? item.GetMemory().Pointer() : nullptr;
        if (found == &object)
            continue; // by a step such as "@self"
        if (found && found->RefCount() == 1)
            break; // computed for this reader: no branch that a write could go to
        // Any other value is in the clone already: to read and write it back might round it.
        if (item.GetType() == it_sharable) {
            branch = item;
            branch.MakeCopy();
        }
        if (found || branch.IsDefined())
            levels.back().step = step;
        if (!found)
            break;
        levels.push_back({item.GetMemory(), safestring()});
    }
    PMemBlock copy, below;
    for (; !levels.empty(); levels.pop_back()) {
        auto const& [object, step] = levels.back();
        copy = object->DoClone(branch_mode);
        if (!copy)
            continue;
        copy->CopyStickyAttributesFrom(*object);
        // A key that leads to a child need not be one that sets it.
        if (branch.IsDefined() && !(below && ReplaceChild(*copy, *below, branch.GetMemory(), step)))
            copy->SetSubItem(step, SafeValue(branch), throw_never);
        branch = DataItem(copy);
        below = object;
    }
    return copy;
}

} // namespace NKelmic
