#ifndef MEMBLOCK_VECTOR_OPERAND_INTERNAL_H
#define MEMBLOCK_VECTOR_OPERAND_INTERNAL_H

#include <memblock/vector/convert.h>
#include <memblock/vector/vector.h>

#include <typeinfo>

namespace NKelmic::ops {

/// The vector that an object is, null if it is none. Most are of the very class, which is told
/// without a cast.
inline Vector* AsVector(PMemBlock const& object)
{
    MemBlock* const block = object.Pointer();
    return block != nullptr && typeid(*block) == typeid(Vector) ? static_cast<Vector*>(block)
                                                                : MemCast<Vector>(object);
}

/// One operand on its way through an operation. The object that came in is only read; what the
/// operation made of it on the way is its own and may be changed.
class Operand {
public:
    explicit Operand(Vector const& source) : vector_(&source) {}
    explicit Operand(DerivedPointer<Vector> source) : own_(std::move(source)), vector_(&cref(own_))
    {
    }

    Vector const& operator*() const { return *vector_; }
    Vector const* operator->() const { return vector_; }
    DataType Type() const { return vector_->ElemType(); }

    void Replace(DerivedPointer<Vector> const& with)
    {
        own_ = with;
        vector_ = &cref(own_);
    }

    DerivedPointer<Vector> Pointer() const { return DerivedPointer<Vector>(vector_); }

    /// Change the element type, contents included, without touching the factor.
    void Convert(DataType type)
    {
        if (Type() != type)
            Replace(vector_->ConvertElemsToType(type, true, true));
    }

    /// Bring the raw values to a factor.
    void EnsureFactor(double factor)
    {
        Replace(own_ ? PrivateCopy(std::move(own_)) : DerivedPointer<Vector>(vector_->Clone(true)));
        own_->EnsureFactor(factor);
    }

    /// Look at the values as those of the other integer type of the same width. The bits are the
    /// same where this is called, so the buffer is shared and not copied.
    void Reinterpret(DataType type)
    {
        TypedChunk const& chunk = vector_->Chunk();
        if (chunk.HasDelayed())
            chunk.DelayedInitialize();
        TypedChunk const twin(chunk.Length(), type, chunk.Chunk(), chunk.GetOffset());
        shape_ = Pointer();
        Replace(Vector::Create(twin, vector_->Factor()));
    }

    /// The object of which a result is made: class and shape are those of the operand.
    Vector const& Shape() const { return shape_ ? cref(shape_) : *vector_; }

private:
    DerivedPointer<Vector> own_; // null while the object is the caller's
    Vector const* vector_;
    DerivedPointer<Vector> shape_; // set where the numbers are looked at through a plain vector
};

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_OPERAND_INTERNAL_H
