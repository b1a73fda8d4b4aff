#include <memblock/core/visitor.h>

#include <memblock/core/memblock_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/safevalue.h>
#include <memblock/vector/vector.h>

namespace NKelmic {

TraverseNode::TraverseNode(TraverseNode const& parent, safestring const& name) : path_(parent.path_)
{
    if (!path_.empty() && name[0] != '[')
        path_ += '.';
    path_ += name;
}

int MemBlockVisitor::Visit(safestring const& path, DataItem& item)
{
    return item.GetType() == it_memblock ? Visit(path, item.MemoryRef()) : int(go_on);
}

bool MemBlockVisitor::NeedsValidData()
{
    return true;
}

MemBlockVisitor::~MemBlockVisitor() {}

int TraverseVisitor::Visit(safestring const& path, PMemBlock& block)
{
    if (block)
        block->Traverse(*this, reads_paths_ ? TraverseNode(path) : TraverseNode());
    return skip_children;
}

int TraverseVisitor::Visit(safestring const& path, DataItem& item)
{
    item.Traverse(*this, reads_paths_ ? TraverseNode(path) : TraverseNode());
    return skip_children;
}

void TraverseVisitor::VisitStart(TraverseNode const&, DataItem&) {}
void TraverseVisitor::VisitStart(TraverseNode const&, MemBlock&) {}
void TraverseVisitor::VisitStart(TraverseNode const&, ThreadSharable&) {}
void TraverseVisitor::VisitVData(TraverseNode const&, DataType, void const*, int, Vector*) {}
void TraverseVisitor::VisitEnd(TraverseNode const&, DataItem&) {}
void TraverseVisitor::VisitEnd(TraverseNode const&, MemBlock&) {}
void TraverseVisitor::VisitEnd(TraverseNode const&, ThreadSharable&) {}

bool TraverseVisitor::Enters(MemBlock&)
{
    return true;
}

int SetConstVisitor::Visit(safestring const&, PMemBlock& block)
{
    if (!block)
        return go_on;
    if (!on_) {
        block->ClearFlags(MemBlock::mem_const);
        if (block->PimplIfAny())
            block->SetSecondaryItem(MemBlock::key_readonly, DataItem());
    } else if (!block.Conforms("xmlnode")) {
        block->RaiseFlags(MemBlock::mem_const);
    }
    return go_on;
}

bool MemUsageVisitor::Enters(MemBlock& block)
{
    return blocks_.insert(&block).second;
}

void MemUsageVisitor::Add(long long bytes)
{
    if (active_)
        bytes_ += bytes;
}

void MemUsageVisitor::AddAnswer(DataItem const& answer)
{
    if (answer.IsDefined())
        Add(answer.GetInt64());
}

namespace {

/// The bytes of a text that does not fit in its value, with the NUL.
long long BytesOutside(safestring const& text, std::size_t most_inside)
{
    return text.size() > most_inside ? static_cast<long long>(text.size()) + 1 : 0;
}

} // namespace

void MemUsageVisitor::VisitStart(TraverseNode const&, DataItem& item)
{
    constexpr std::size_t most_inside = 20;
    if (item.GetType() == it_string)
        Add(BytesOutside(item.GetString(), most_inside));
}

void MemUsageVisitor::VisitStart(TraverseNode const& node, MemBlock& block)
{
    AddAnswer(block.DoVerb("memusage_self", 0, nullptr));
    // The elements are children and come one by one, the array as data does not.
    Vector* const vector = MemCast<Vector>(&block);
    if (vector && (vector->ElemType() == Vector::PMemory || vector->ElemType() == Vector::PolyType))
        VisitVData(node, vector->ElemType(), vector->Chunk().Data(),
                   static_cast<int>(vector->Length()), vector);
}

void MemUsageVisitor::VisitStart(TraverseNode const&, ThreadSharable& sharable)
{
    if (sharables_.insert(&sharable).second)
        AddAnswer(sharable.DoVerb("memusage_self", SafeValue(), SafeValue()));
}

void MemUsageVisitor::VisitVData(TraverseNode const&, DataType type, void const* data, int length,
                                 Vector* vector)
{
    if (!data || !buffers_.insert(data).second)
        return;
    Add(static_cast<long long>(length) * TypedChunk::SizeOf(type));
    bool const has_texts =
        type == DataTypeBase::String && !(vector && vector->Chunk().HasDelayed());
    std::size_t const most_inside = safestring().capacity();
    auto const* const texts = static_cast<safestring const*>(data);
    for (int i = 0; has_texts && i < length; ++i)
        Add(BytesOutside(texts[i], most_inside));
}

/// Notes all objects below one that outsiders reach.
class DeepCopier::ExposureMarker : public MemBlockVisitor {
public:
    explicit ExposureMarker(DeepCopier& copier) : copier_(copier)
    {
        reads_paths_ = false;
        sees_sticky_items_ = true;
    }
    using MemBlockVisitor::Visit;
    int Visit(safestring const&, PMemBlock& block) override
    {
        auto const entry = copier_.table_.find(block.Pointer());
        if (entry == copier_.table_.end())
            return skip_children; // null, or the root, which is left alone
        return std::exchange(entry->second.exposed, true) ? int(skip_children) : int(go_on);
    }
    bool NeedsValidData() override { return false; }

private:
    DeepCopier& copier_;
};

DeepCopier::DeepCopier(MemBlock* root, safestring* report)
    : root_(root), table_(100), report_(report)
{
    reads_paths_ = report != nullptr;
    sees_sticky_items_ = true;
}

int DeepCopier::Visit(safestring const& path, PMemBlock& block)
{
    if (!block)
        return go_on;
    if (block.Pointer() == root_)
        return skip_children;
    return counting ? Count(block.Pointer()) : Replace(path, block);
}

int DeepCopier::Count(MemBlock* block)
{
    refcount_entry& entry = table_[block];
    bool const first_sight = entry.unseen < 0;
    if (first_sight)
        entry.unseen = block->RefCount();
    --entry.unseen;
    // The references that hang below belong to the object, not to the places that hold it.
    return first_sight ? go_on : skip_children;
}

void DeepCopier::BeginCopying()
{
    counting = false;
    DropDerivedObjects(*root_);
    ExposureMarker marker(*this);
    for (auto& [block, entry] : table_) {
        if (entry.unseen > 0 && !std::exchange(entry.exposed, true))
            block->Entertain(marker, safestring(), MemBlock::em_no_self);
    }
}

void DeepCopier::DropDerivedObjects(MemBlock& block)
{
    if (auto* const pimpl = block.PimplIfAny())
        pimpl->TakeDerivedObjects(dropped_, keeps_transient);
}

int DeepCopier::Replace(safestring const& path, PMemBlock& block)
{
    auto const found = table_.find(block.Pointer());
    if (found == table_.end())
        return go_on; // not seen before: made while this one's parent was cloned
    refcount_entry& entry = found->second;
    bool const first_sight = !std::exchange(entry.done, true);
    if (!entry.exposed) {
        if (first_sight)
            DropDerivedObjects(*block);
        return first_sight ? go_on : skip_children;
    }
    if (first_sight) {
        if (report_ && entry.unseen > 0) {
            if (!report_->empty())
                *report_ += ',';
            *report_ += path;
        }
        entry.replacement = block->CloneIn(deep_copy_mode);
        // What hangs below comes first: if it throws, the tree never shows a half-made copy.
        if (entry.replacement)
            entry.replacement->Entertain(*this, path, MemBlock::em_no_self);
    }
    if (entry.replacement)
        block = entry.replacement;
    return skip_children;
}

} // namespace NKelmic
