#include <memblock/core/visitor.h>
#include <memblock/vector/vectorforms_internal.h>

#include <utility>

namespace NKelmic {

namespace {

safestring ElementPath(safestring const& path, unsigned int i)
{
    return TraverseNode(TraverseNode(path), ElementName(i)).Path();
}

/// Arrays are data for the visitors that look at data, and nothing for all others.
void OfferData(Vector& v, MemBlockVisitor& visitor, safestring const& path)
{
    auto* const traverse = dynamic_cast<TraverseVisitor*>(&visitor);
    if (!traverse)
        return;
    void const* const data =
        visitor.NeedsValidData() ? std::as_const(v).Pointer() : v.Chunk().Data();
    traverse->VisitVData(TraverseNode(TraverseNode(path), "vdata"), v.ElemType(), data,
                         static_cast<int>(v.Length()), &v);
}

} // namespace

bool Vector::Entertain(MemBlockVisitor& visitor, safestring const& path, entertainmode_t mode)
{
    if (!MemBlock::Entertain(visitor, path, mode))
        return false;
    bool const has_children = ElemType() == PMemory || ElemType() == PolyType;
    if (mode == em_no_attr || (has_children && OnTheWay::Is(*this, &visitor)))
        return true;
    OnTheWay const mark(*this, &visitor);
    if (ElemType() == PMemory) {
        // The length and the place are asked anew each time: a visitor may come back to this
        // vector.
        for (unsigned int i = 0; i < Length(); ++i)
            if (!EntertainChild(*PMemoryPointer(i), visitor, ElementPath(path, i), mode))
                return false;
    } else if (ElemType() == PolyType) {
        for (unsigned int i = 0; i < Length(); ++i) {
            DataItem& item = *PolyTypePointer(i);
            if (item.GetType() == it_memblock) {
                if (!EntertainChild(item.MemoryRef(), visitor, ElementPath(path, i), mode))
                    return false;
            } else if (mode == em_traverse &&
                       visitor.Visit(ElementPath(path, i), item) == MemBlockVisitor::stop) {
                return false;
            }
        }
    } else if (mode == em_traverse) {
        OfferData(*this, visitor, path);
    }
    return true;
}

} // namespace NKelmic
