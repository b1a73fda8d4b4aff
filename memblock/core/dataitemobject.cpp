#include <memblock/core/dataitem.h>

#include <memblock/core/memblock_internal.h>
#include <memblock/core/serializer.h>
#include <memblock/core/visitor.h>
#include <memblock/vector/vector.h>

namespace NKelmic {

bool DataItem::Consistent(safestring& message)
{
    bool ok = true;
    if (bits_.type == it_memblock && Block()) {
        ok = Block()->Consistent(message, true);
    } else if (bits_.type == it_sharable) {
        ok = ThreadSharableGetRefCount(Load<ThreadSharable*>()) > 0;
        if (!ok)
            message += "Reference count negative. ";
    }
    if (!ok)
        message += " (Item description: " + GetDescription();
    return ok;
}

long long DataItem::CalcMemUsage() const
{
    MemUsageVisitor visitor;
    // this visitor only looks
    const_cast<DataItem*>(this)->Traverse(visitor, TraverseNode());
    return visitor.Bytes();
}

void DataItem::Traverse(TraverseVisitor& v, TraverseNode const& node)
{
    DataItem shown(*this); // the visitor may change or drop this one, and what it holds
    v.VisitStart(node, *this);
    if (shown.bits_.type == it_memblock && shown.Block())
        shown.Block()->Traverse(v, TraverseNode(node, "memblock"));
    else if (shown.bits_.type == it_sharable)
        shown.Load<ThreadSharable*>()->Traverse(v, TraverseNode(node, "sharable"));
    v.VisitEnd(node, shown);
}

bool DataItem::Serialize(int format, SerializeVisitor& v, safestring const& path,
                         Formatter const& formatter, safestring& output) const
{
    if (bits_.type == it_memblock && Block())
        Block()->Serialize(format, v, path, formatter, output);
    else if (bits_.type == it_sharable)
        Load<ThreadSharable*>()->Serialize(format, v, path, formatter, output);
    else
        return false;
    return true;
}

void DataItem::VectorToScalar()
{
    if (Vector const* const vector = AsVector(); vector && vector->Length() == 1)
        *this = vector->GetDataItemWithFactor(0);
}

void DataItem::ScalarToVector()
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
    case it_int:
    case it_double:
    case it_int64:
        *this = DataItem(GetMemory());
        break;
    default:
        break;
    }
}

void DataItem::MakeCopy()
{
    if (bits_.type == it_sharable) {
        int const creator = GetCreator();
        *this = DataItem(GetSharable().MakeCopy());
        SetCreator(creator);
        return;
    }
    if (bits_.type != it_memblock || !Block())
        return;
    Vector const* const vector = AsVector();
    bool const holds_objects =
        vector && (vector->ElemType() == Vector::PMemory || vector->ElemType() == Vector::PolyType);
    if (Block()->RefCount() == 1 && !holds_objects)
        return;
    PMemBlock const copy = Block()->CloneIn(deep_copy_mode);
    MakeIndependent(*copy);
    MemoryRef() = copy;
}

} // namespace NKelmic
