#include <memblock/vector/vector.h>

#include <memblock/base/number.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cmath>

namespace NKelmic {

namespace {

/// Factors that differ by less are equal: two units in the last place of 1.0.
constexpr double factor_epsilon = 4.440892098500626e-16;

bool SameFactor(double a, double b)
{
    return std::fabs(a - b) < factor_epsilon; // false for NaN
}

bool IsColorPlane(PMemBlock const& element, PMemBlock const& first)
{
    if (!element.Conforms("image"))
        return false;
    auto const* plane = MemCast<Vector>(element.Pointer());
    auto const* model = MemCast<Vector>(first.Pointer());
    // Alike in all that a pixel depends on, or three planes are no picture.
    return plane && model && plane->ElemType() == model->ElemType() &&
           plane->Factor() == model->Factor() && plane->GetDimSize(0) == model->GetDimSize(0) &&
           plane->GetDimSize(1) == model->GetDimSize(1);
}

bool HoldsColorPlanes(Vector const& v)
{
    if (v.ElemType() != Vector::PMemory || v.Length() != 3)
        return false;
    PMemBlock const* planes = v.PMemoryPointer();
    return IsColorPlane(planes[0], planes[0]) && IsColorPlane(planes[1], planes[0]) &&
           IsColorPlane(planes[2], planes[0]);
}

/// Whether the sizes, from the last one on, multiply to the length.
bool ShapeIsConsistent(Vector const& v, safestring& message)
{
    // Divided, not multiplied: sizes that came from a file may overflow a product.
    unsigned int remaining = v.Length();
    bool some_zero = false;
    for (int i = v.GetRank() - 1; i >= 0; --i) {
        unsigned int const size = v.GetDimSize(i);
        if (static_cast<int>(size) < 0) {
            message += Text("Dimension %d size negative: %d", i, static_cast<int>(size));
            return false;
        }
        if (size == 0 && v.Length() != 0) {
            message += Text("Dimension %d size is zero, but vector length not: %d", i, v.Length());
            return false;
        }
        if (size != 0 && remaining % size != 0) {
            message += Text("Dimension %d size is %d, which is not a factor of vector length: %d",
                            i, size, v.Length());
            return false;
        }
        some_zero = some_zero || size == 0;
        remaining = size != 0 ? remaining / size : 0;
    }
    if (some_zero || remaining == 1)
        return true;
    message += Text("Vector length %d is not the product of dimension sizes.", v.Length());
    return false;
}

bool ObjectsAreConsistent(Vector const& v, safestring& message)
{
    bool ok = true;
    PMemBlock const* objects = v.PMemoryPointer();
    for (unsigned int i = 0; i < v.Length(); ++i) {
        if (!objects[i])
            message += Text("Element [%d] is NULL memblock pointer. ", i);
        ok = objects[i] && objects[i]->Consistent(message, true) && ok;
    }
    return ok;
}

} // namespace

Vector::Vector() : factor_(1.0), chunk_(0, Int, MemChunk(), 0) {}

Vector::Vector(TypedChunk const& chunk, double factor) : factor_(factor), chunk_(chunk)
{
    CheckChunk(chunk);
}

Vector::Vector(TypedChunk&& chunk, double factor) : factor_(factor), chunk_(std::move(chunk))
{
    CheckChunk(chunk_);
}

Vector::Vector(Vector const& o, TypedChunk const& chunk, double factor)
    : MemBlock(o), DataTypeBase(o), factor_(factor), chunk_(chunk)
{
    CheckLength(chunk.Length());
}

Vector::Vector(Vector const& o) : Vector(o, o.chunk_, o.factor_)
{
    // Objects are counted. Two vectors on one buffer of them would each take the other's counts for
    // its own.
    if (IsObject(ElemType()))
        chunk_.DetachSharedData();
}

Vector::~Vector() {}

char const* Vector::Class() const
{
    return StaticClass();
}

bool Vector::Conforms(char const* classname) const
{
    if (SameName(classname, "vector"))
        return true;
    // Asked of the content each time: it changes with any element.
    if (SameName(classname, "color_data"))
        return HoldsColorPlanes(*this);
    return MemBlock::Conforms(classname);
}

bool IsVectorOfColorPlanes(PMemBlock const& block)
{
    auto const* vector = MemCast<Vector>(block.Pointer());
    return vector && HoldsColorPlanes(*vector);
}

char const* Vector::ClassDescription() const
{
    return "Vector - encapsulates a 1-dimensional C array of several element types.\n"
           "Derived from: MemBlock\n"
           "Physically stored values are called raw values. Cooked value is defined as\n"
           "\tcooked_value = (raw_value + shift)*factor\n"
           "Subkeys:\n"
           "\tfactor - return the intensity division factor of element values\n"
           "\tlength - return the number of elements\n"
           "\telemsize - return element size in bytes\n"
           "\telemtype - return element type as coded in vector.h\n"
           "\tmax - return cooked maximum element value\n"
           "\tmin - return cooked minimum element value\n"
           "\tmean - return cooked mean element value\n"
           "\tmedian - return cooked median of element values\n"
           "\tfmedian - same as median, except that returns average of two middle values.\n"
           "\t_max - return raw maximum element value\n"
           "\t_min - return raw minimum element value\n"
           "\t_mean - return raw mean element value\n"
           "\t_median - return raw median of element values\n"
           "\t_rough_max - return raw value equal or larger than maximum value\n"
           "\t[index] - return cooked element value by zero-based index\n"
           "\t[_index] - return raw element value by zero-based index\n"
           "Invariants:\n"
           "\tlength*elemsize <= size\n";
}

safestring Vector::DoGetDescription() const
{
    safestring text = Text("Vector of %d elements of type %s", Length(), TypeToString(ElemType()));
    if (factor_ != 1.0)
        text += Text(", raw factor %s", str(factor_, 6));
    return text;
}

bool Vector::Consistent(safestring& message, bool deep) const
{
    // Each check runs, whatever the ones before it found: the message is read by somebody who has
    // to repair a file, and names all faults.
    bool ok = MemBlock::Consistent(message, deep);
    ok = chunk_.Consistent(message) && ok;
    ok = ShapeIsConsistent(*this, message) && ok;
    if (factor_ < 0.0) {
        message += "Raw factor is negative. ";
        ok = false;
    }
    if (deep && ElemType() == PMemory)
        ok = ObjectsAreConsistent(*this, message) && ok;
    return ok;
}

bool Vector::Equals(MemBlock const& other) const
{
    auto const* o = dynamic_cast<Vector const*>(&other);
    // A factor that went through a text need not be the same to the bit.
    return o && SameFactor(factor_, o->factor_) && chunk_ == o->chunk_ && MemBlock::Equals(other);
}

PMemBlock Vector::DoClone(int mode) const
{
    DerivedPointer<Vector> copy(new Vector(*this));
    copy->FinishClone(mode);
    return copy;
}

void Vector::FinishClone(int mode)
{
    static_assert(type_count<ObjectTypes> == 3, "texts are copied with the buffer");
    // The buffer of a clone has its own elements; what the elements refer to may still be shared. A
    // deep copy gets its objects replaced by the walk, but a walk does not enter shared values.
    if (ElemType() == PolyType) {
        DataItem* items = PolyTypePointer();
        for (unsigned int i = 0; i < Length(); ++i)
            if (mode != deep_copy_mode || items[i].GetType() == it_sharable)
                items[i].MakeCopy();
    } else if (ElemType() == PMemory && mode <= 0) {
        PMemBlock* objects = PMemoryPointer();
        for (unsigned int i = 0; i < Length(); ++i)
            if (objects[i])
                objects[i] = objects[i]->Clone(false);
    } else if (mode <= 0) {
        Pointer(); // detaches
    }
}

void const* Vector::Pointer() const
{
    if (chunk_.HasDelayed())
        chunk_.DelayedInitialize();
    return chunk_.Data();
}

void* Vector::Pointer()
{
    if (chunk_.HasDelayed())
        chunk_.DelayedInitialize();
    chunk_.DetachSharedData();
    return chunk_.Data();
}

bool Vector::CanBeCast(DataType type) const
{
    if (type == ElemType())
        return true;
    if (type == PMemory || type == Float || ElemType() == Float)
        return false;
    return WithElemTypeOr<AllTypes>(
        type, [] { return false; }, [&]<class T>(TypeTag<T>) { return sizeof(T) == ElemSize(); });
}

int Vector::GetRank() const
{
    return 1;
}

unsigned int Vector::GetDimSize(int i) const
{
    return i == 0 ? Length() : 0;
}

DerivedPointer<Vector> Vector::GetDimSizes() const
{
    return memblock_tmpl<unsigned int>(Length());
}

/// Settled: only images know a class of data for which the factor has no meaning; 0 is theirs for
/// plain data.
void Vector::CheckFactor(double factor) const
{
    if (factor != 1.0 && LgType() != 0 && Conforms("image"))
        Raise(err_value,
              "Cannot set raw factor to %g for a non-data image, set image.@type=\"data\" "
              "beforehand: %s",
              factor, *this);
}

void Vector::SetFactor(double factor)
{
    CheckFactor(factor);
    factor_ = factor;
    ContentHasBeenChanged();
}

int Vector::RealToPixel(double value, rounding_t mode) const
{
    double const raw = value / factor_;
    switch (mode) {
    case rounding_floor:
        return TruncToInt(std::floor(raw));
    case rounding_ceil:
        return TruncToInt(std::ceil(raw));
    case rounding_nearest:
        // Settled: truncates, also below zero, where it is no rounding.
        return TruncToInt(raw + 0.5 + 1e-16);
    }
    Raise(err_kind, "Vector::RealToPixel(): rounding mode not supported: %d",
          static_cast<int>(mode));
}

void Vector::ClearBorders() const
{
    // Only images know the word. For all others the refusal is a warning, as scripts call this for
    // whatever they hold.
    Convert(safestringlist(safestring("clearedborders"), ','), safestring(), LogWarnings());
}

} // namespace NKelmic
