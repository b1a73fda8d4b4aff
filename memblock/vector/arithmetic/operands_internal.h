#ifndef MEMBLOCK_VECTOR_ARITHMETIC_OPERANDS_INTERNAL_H
#define MEMBLOCK_VECTOR_ARITHMETIC_OPERANDS_INTERNAL_H

#include <memblock/core/safevalue.h>
#include <memblock/vector/arithmetic/operators_internal.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/vector.h>

#include <typeinfo>

namespace NKelmic::ops {

/// The vector that an object is, null if it is none. Usually it is of the exact class, which needs
/// no cast.
inline Vector* AsVector(PMemBlock const& object)
{
    MemBlock* const block = object.Pointer();
    return block != nullptr && typeid(*block) == typeid(Vector) ? static_cast<Vector*>(block)
                                                                : MemCast<Vector>(object);
}

/// Whether an object is a vector and no more: a derived class may ask for steps of its own.
inline bool IsPlain(Vector const& v)
{
    return typeid(v) == typeid(Vector);
}

/// Whether there is also nothing else about it that a clone would take over.
inline bool IsBare(Vector const& v)
{
    return IsPlain(v) && v.Flags() == 0 && v.LgType() == 0;
}

/// What the caller of an operation asks for, read once from the options.
struct OpRequest {
    static constexpr auto any_type = static_cast<DataType>(-1);

    OpRequest(char op, op_options const& from);

    char name;
    Operator const& op;
    op_options const& options;
    bool no_factor;     // raw values are combined, the result has factor 1
    bool fixed = false; // some result type is wanted, by the caller or the operator
    DataType route = DataTypeBase::Double; // that type: a floating one takes the floating route
    DataType requested = any_type;         // the caller's "result_type"
    DataType by_operator = any_type;       // what the operator itself asks for at the end
};

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

    /// Look at the values as those of the other integer type of the same width. The caller has
    /// made sure that the bits mean the same, so the buffer is shared and not copied.
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

/// Both operands of one operation.
struct OperandPair {
    Operand x;
    Operand y;
    bool XIsScalar() const { return x->Length() == 1 && y->Length() != 1; }
    bool YIsScalar() const { return y->Length() == 1 && x->Length() != 1; }
    /// The operand whose class and shape the result takes.
    Vector const& Array() const { return XIsScalar() ? y.Shape() : x.Shape(); }
    bool AnyOf(DataType type) const { return x.Type() == type || y.Type() == type; }
    template <class Set>
    bool AnyIn() const
    {
        return IsInSet<Set>(x.Type()) || IsInSet<Set>(y.Type());
    }
    template <class Set>
    bool BothIn() const
    {
        return IsInSet<Set>(x.Type()) && IsInSet<Set>(y.Type());
    }
    void Convert(DataType type)
    {
        x.Convert(type);
        y.Convert(type);
    }
};

/// Vectors of objects that hold numbers or texts become vectors of these.
void Simplify(OperandPair& operands);

/// A scalar beside an array takes the factor of the array where the two are added, and the smallest
/// type that holds it, so that it never widens the array.
void PrepareScalar(OperandPair& operands, OpRequest const& request);

/// Bring the raw values of operands of different factors together, as the operator asks.
void PrepareFactors(OperandPair& operands, OpRequest const& request);

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_OPERANDS_INTERNAL_H
