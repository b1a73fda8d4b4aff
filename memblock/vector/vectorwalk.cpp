#include <memblock/core/childwalk_internal.h>
#include <memblock/vector/vectorforms_internal.h>

#include <algorithm>
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
    // An initialization that was put off may read a file: only visitors that look pay for it.
    void const* const data =
        visitor.NeedsValidData() ? std::as_const(v).Pointer() : v.Chunk().Data();
    traverse->VisitVData(TraverseNode(TraverseNode(path), "vdata"), v.ElemType(), data,
                         static_cast<int>(v.Length()), &v);
}

bool HoldsObjects(Vector const& v)
{
    static_assert(type_count<ObjectTypes> == 3, "texts hold no objects, both others do");
    return v.ElemType() == Vector::PMemory || v.ElemType() == Vector::PolyType;
}

/// Where the object at an index is; null if none is there.
PMemBlock* FindObject(Vector& v, long i)
{
    // Nothing that was found before a visitor ran is valid after it, so this looks anew.
    if (i < 0 || i >= static_cast<long>(v.Length()))
        return nullptr;
    if (v.ElemType() == Vector::PMemory)
        return v.PMemoryPointer(i);
    if (v.ElemType() != Vector::PolyType)
        return nullptr;
    DataItem& item = *v.PolyTypePointer(i);
    return item.GetType() == it_memblock ? &item.MemoryRef() : nullptr;
}

/// A walk over elements, during which elements may come and go and the buffer may move.
class ElementWalk {
public:
    ElementWalk(Vector& v, MemBlockVisitor& visitor, safestring const& path,
                MemBlock::entertainmode_t mode)
        : v_(v), visitor_(visitor), path_(path), mode_(mode)
    {
    }

    bool Run() // false if the visitor stops it
    {
        // Length and type are read again each time: a visitor may erase, insert or convert.
        for (at_ = 0; at_ < static_cast<long>(v_.Length()) && HoldsObjects(v_);
             at_ = std::max(at_ + 1, 0L))
            if (!Enter())
                return false;
        return true;
    }

private:
    long Length() const { return static_cast<long>(v_.Length()); }

    bool Enter()
    {
        PMemBlock* const child = FindObject(v_, at_);
        if (!child && mode_ != MemBlock::em_traverse)
            return true;
        safestring const below = ElementPath(path_, static_cast<unsigned int>(at_));
        if (!child)
            return visitor_.Visit(below, *v_.PolyTypePointer(at_)) != MemBlockVisitor::stop;
        // To find the element again after the visitor has had its way; the pointer is compared
        // only.
        object_ = child->Pointer();
        length_ = Length();
        bool const go_on = EntertainPlace(
            *child, [this] { return Follow() ? FindObject(v_, at_) : nullptr; }, visitor_, below,
            mode_);
        Follow();
        return go_on;
    }

    /// Go to where the element is now. False if it has gone: the walk is then ahead of the next.
    bool Follow()
    {
        auto const is_here = [this] {
            PMemBlock const* const place = FindObject(v_, at_);
            return place && place->Pointer() == object_;
        };
        long const grown = Length() - std::exchange(length_, Length());
        if (grown == 0 || is_here()) // or another object has been put here
            return true;
        at_ += grown;
        return is_here();
    }

    Vector& v_;
    MemBlockVisitor& visitor_;
    safestring const& path_;
    MemBlock::entertainmode_t mode_;
    long at_ = 0;
    MemBlock const* object_ = nullptr; // the one visited here, to compare with
    long length_ = 0;                  // of the vector at that time
};

} // namespace

bool Vector::Entertain(MemBlockVisitor& visitor, safestring const& path, entertainmode_t mode)
{
    // A visitor may drop the last pointer to this vector.
    KeepAlive const alive(*this);
    if (!MemBlock::Entertain(visitor, path, mode))
        return false;
    if (mode == em_no_attr)
        return true;
    if (!HoldsObjects(*this)) {
        if (mode == em_traverse)
            OfferData(*this, visitor, path);
        return true;
    }
    // A vector can hold itself, also through others.
    if (OnTheWay::Is(*this, &visitor))
        return true;
    OnTheWay const mark(*this, &visitor);
    return ElementWalk(*this, visitor, path, mode).Run();
}

} // namespace NKelmic
