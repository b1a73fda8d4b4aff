#include <memblock/imaging/indexvector.h>

#include <memblock/base/alloc.h>
#include <memblock/base/number.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/imaging/intervaldraw_internal.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/imaging/targetdata_internal.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>
#include <utility>

namespace NKelmic {

namespace {

TypedChunk AdoptedChunk(unsigned long n, unsigned int* data, int offset, void (*release)(void*))
{
    // An int by the interface; as a number of cells it would be a huge one.
    if (offset < 0)
        Raise(err_kind, "IndexVector::Create() called with a negative offset: %d", offset);
    return ForeignChunk(n, Vector::UnsignedInt, data, static_cast<unsigned long>(offset), release);
}

void CheckTargetIsImage(IndexVector const& v, unsigned int w)
{
    if (w == 0 && v.Length() > 0)
        Raise(err_value, "IndexVector target is not an image, cannot return image dimensions: %s",
              v.TargetDescr());
}

} // namespace

IndexVector::IndexVector(unsigned long n) : Vector(NewChunk(n, UnsignedInt), 1.0) {}

IndexVector::IndexVector(unsigned long n, unsigned int* data, int offset, void (*release)(void*))
    : Vector(AdoptedChunk(n, data, offset, release), 1.0)
{
}

IndexVector::IndexVector(Vector const& indices) : Vector(indices, indices.Chunk(), 1.0)
{
    MemBlock::DoSetLgType(0); // that of the indices meant another class
}

void IndexVector::TakeTarget(Vector const& target)
{
    std::vector<unsigned int> sizes;
    for (int i = 0; i < target.GetRank(); ++i)
        sizes.push_back(target.GetDimSize(i));
    target_.dims = std::move(sizes);
    target_.descr = target.GetDescription();
}

void IndexVector::TakeImage(Vector const& target)
{
    // Settled: only an image gives its sizes here. A cube or a vector as target of given indices
    // gives its description and no more.
    if (target.GetRank() == 2)
        SetImageDimensions(static_cast<int>(target.GetDimSize(0)),
                           static_cast<int>(target.GetDimSize(1)));
    target_.descr = target.GetDescription();
}

DerivedPointer<IndexVector> IndexVector::Create()
{
    return Create(0, 0, 0);
}

DerivedPointer<IndexVector> IndexVector::Create(unsigned long n, unsigned int w, unsigned int h)
{
    DerivedPointer<IndexVector> v(new IndexVector(n));
    v->SetImageDimensions(static_cast<int>(w), static_cast<int>(h));
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(unsigned long n, DerivedPointer<Vector> target)
{
    DerivedPointer<IndexVector> v(new IndexVector(n));
    if (target)
        v->TakeTarget(cref(target));
    else
        // Settled: without a target the indices are into an image of one pixel.
        v->target_ = TargetData(2, 1, 1);
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(unsigned long n, TargetData const& target)
{
    DerivedPointer<IndexVector> v(new IndexVector(n));
    v->target_ = target;
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(unsigned long n, unsigned int* data, int offset,
                                                void (*release)(void*), unsigned int w,
                                                unsigned int h)
{
    DerivedPointer<IndexVector> v(new IndexVector(n, data, offset, release));
    v->SetImageDimensions(static_cast<int>(w), static_cast<int>(h));
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(unsigned long n, unsigned int* data, int offset,
                                                void (*release)(void*),
                                                DerivedPointer<Vector> target)
{
    DerivedPointer<IndexVector> v(new IndexVector(n, data, offset, release));
    if (target)
        v->TakeImage(cref(target));
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(unsigned long n, unsigned int* data, int offset,
                                                void (*release)(void*), TargetData const& target)
{
    DerivedPointer<IndexVector> v(new IndexVector(n, data, offset, release));
    v->target_ = target;
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(DerivedPointer<Vector> indices, unsigned int w,
                                                unsigned int h)
{
    DerivedPointer<IndexVector> v(new IndexVector(cref(AsIndices(std::move(indices)))));
    v->SetImageDimensions(static_cast<int>(w), static_cast<int>(h));
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(DerivedPointer<Vector> indices,
                                                DerivedPointer<Vector> target)
{
    DerivedPointer<IndexVector> v(new IndexVector(cref(AsIndices(std::move(indices)))));
    if (target)
        v->TakeImage(cref(target));
    return v;
}

DerivedPointer<IndexVector> IndexVector::Create(DerivedPointer<Vector> indices,
                                                TargetData const& target)
{
    DerivedPointer<IndexVector> v(new IndexVector(cref(AsIndices(std::move(indices)))));
    v->target_ = target;
    return v;
}

char const* IndexVector::Class() const
{
    return StaticClass();
}

bool IndexVector::Conforms(char const* classname) const
{
    return SameName(classname, "indexvector") ||
           (SameName(classname, "mask") && TargetRank() == 2) ||
           (SameName(classname, "datacubemask") && TargetRank() == 3) ||
           Vector::Conforms(classname);
}

bool IndexVector::Entertain(MemBlockVisitor& visitor, safestring const& path, entertainmode_t mode)
{
    KeepAlive const alive(*this);
    bool const go_on = Vector::Entertain(visitor, path, mode);
    if (go_on && mode == em_traverse)
        VisitTarget(target_, visitor, path);
    return go_on;
}

char const* IndexVector::ClassDescription() const
{
    return "IndexVector - encapsulates an array of indices into another MemBlock (target).\n"
           "Derived from: Vector\n"
           "Subkeys:\n"
           "\tarea - return the number of indices.\n"
           "\ttargetsize - return the size of target elements in bytes\n"
           "\ttarget - return the reference to the first target\n";
}

PMemBlock IndexVector::DoClone(int mode) const
{
    DerivedPointer<IndexVector> copy(new IndexVector(*this));
    copy->FinishClone(mode);
    return copy;
}

safestring IndexVector::DoGetDescription() const
{
    if (TargetRank() != 2)
        return Text("Indexvector of %d indices into: %s", Length(), TargetDescr());
    unsigned int w = 0;
    unsigned int h = 0;
    GetImageDimensions(w, h, throw_never);
    return Text("Mask for %dx%d images, in vector representation.", w, h);
}

bool IndexVector::Consistent(safestring& message, bool deep) const
{
    bool const ok = Vector::Consistent(message, deep);
    if (ElemType() != UnsignedInt) { // a buffer of another type was put into it
        message += Text("Cannot cast data to UnsignedInt type: %s", *this);
        return false;
    }
    if (!deep || Length() == 0)
        return ok;
    try {
        SecondaryInt(key_max, throw_always);
    } catch (Exception const& e) {
        // The cached maximum is read as int. Only a number too large for one is a fault of the
        // indices; any other failure is not ours to explain.
        safestring const text = e.what();
        if (text.find("cannot be converted to int type") == safestring::npos &&
            text.find("Cannot convert data item to int") == safestring::npos &&
            text.find("Cannot convert to integer") == safestring::npos)
            throw;
        message += "IndexVector contains indices outside of target: " +
                   str(SecondaryDouble(key_max, throw_always), 6) + ". " + text;
        return false;
    }
    return ok;
}

void IndexVector::SetElemType(DataType type, bool, bool)
{
    // Everything that reads pixels takes the buffer as unsigned int without a test. As another type
    // it would be a plain vector.
    if (type != UnsignedInt && type != NoType)
        Raise(err_kind, "Conversion not supported: %s", *this);
}

void IndexVector::Append(DerivedPointer<Vector> v)
{
    if (!v || !MemCast<Vector>(v))
        return Vector::Append(v);
    if (SameName(v->Class(), StaticClass())) {
        auto const* other = MemCast<IndexVector>(v);
        // The sizes count, not the description: it is a text for people, and scripts change it.
        if (other && other->target_.dims != target_.dims)
            Raise(err_kind, "Incompatible targets: %s AND %s", *this, v);
    }
    Vector::Append(AsIndices(std::move(v)));
}

// ---- the target
// ----------------------------------------------------------------------------------

void IndexVector::SetTargetData(safestring const& descr, int rank, unsigned int const* dims)
{
    TargetData target(rank, dims); // `dims` may be the ones that go
    target.descr = descr;
    target_ = std::move(target);
    DropHashes(*this);
}

void IndexVector::SetImageDimensions(int w, int h)
{
    // Settled: a size above the range of int shows as negative here.
    target_.descr = Text("Image of %dx%d pixels.", w, h);
    target_.dims = {static_cast<unsigned int>(w), static_cast<unsigned int>(h)};
    DropHashes(*this);
}

unsigned int IndexVector::TargetDimSize(int i) const
{
    return i >= 0 && i < TargetRank() ? target_.dims[static_cast<std::size_t>(i)] : 0;
}

void IndexVector::GetImageDimensions(unsigned int& w, unsigned int& h,
                                     ThrowHandlerFunc handler) const
{
    bool const image = TargetRank() == 2;
    w = image ? TargetDimSize(0) : 0;
    h = image ? TargetDimSize(1) : 0;
    if (!image)
        Report(handler, err_value,
               "IndexVector target is not an image, cannot return image dimensions: %s",
               TargetDescr());
}

DerivedPointer<Image> IndexVector::GetMaskImage() const
{
    if (TargetRank() != 2)
        Raise(err_kind, "This is not an IndexVector into an image : %s", *this);
    DerivedPointer<Image> image = ImageToDrawIn(TargetDimSize(0), TargetDimSize(1), Byte, Length());
    // Indices are not checked when they are stored, so each write is.
    unsigned int const* const indices = UnsignedIntPointer();
    unsigned char* const pixels = image->BytePointer();
    unsigned int const count = image->Length();
    for (unsigned int i = 0, n = Length(); i < n; ++i)
        if (indices[i] < count)
            pixels[indices[i]] = 1;
    image->SetType(Image::mask);
    return image;
}

DerivedPointer<Vector> IndexVector::Coordinates(bool rows) const
{
    unsigned int w = 0;
    unsigned int h = 0;
    GetImageDimensions(w, h, throw_always);
    // A width of 0 with indices comes from a target without sizes; the division below must not meet
    // it.
    CheckTargetIsImage(*this, w);
    DerivedPointer<Vector> v = Vector::Create(OpenChunk(Length(), Int), 1.0);
    unsigned int const* const indices = UnsignedIntPointer();
    int* const out = v->IntPointer();
    for (unsigned int i = 0, n = Length(); i < n; ++i)
        out[i] = static_cast<int>(rows ? indices[i] / w : indices[i] % w);
    return v;
}

DerivedPointer<Vector> IndexVector::GetXVector() const
{
    return Coordinates(false);
}

DerivedPointer<Vector> IndexVector::GetYVector() const
{
    return Coordinates(true);
}

DerivedPointer<IndexVector> indexvector_clearborders(DerivedPointer<IndexVector> v)
{
    unsigned int w = 0;
    unsigned int h = 0;
    v->GetImageDimensions(w, h, throw_always);
    CheckTargetIsImage(*v, w);
    unsigned int const* const indices = cref(v).UnsignedIntPointer();
    // An index below the last row is outside, but not in the frame: it stays, as every reader
    // leaves it out itself.
    auto const inside = [&](unsigned int index) {
        unsigned int const x = index % w;
        unsigned int const y = index / w;
        return x != 0 && x != w - 1 && y != 0 && y != h - 1;
    };
    unsigned long count = 0;
    for (unsigned int i = 0; i < v->Length(); ++i)
        count += inside(indices[i]);
    auto cleared = IndexVector::Create(count, v->GetTargetData());
    unsigned int* out = cleared->UnsignedIntPointer();
    for (unsigned int i = 0; i < v->Length(); ++i)
        if (inside(indices[i]))
            *out++ = indices[i];
    return cleared;
}

DerivedPointer<Vector> IndexVector2ShiftVector(DerivedPointer<IndexVector> kernel, int image_width)
{
    if (!PMemBlock(kernel).Conforms("indexvector"))
        Raise(err_kind, "Function IndexVector2ShiftVector, poMatrix is not an IndexVector: %s",
              kernel);
    unsigned int w = 0;
    unsigned int h = 0;
    kernel->GetImageDimensions(w, h, throw_always);
    CheckTargetIsImage(*kernel, w);
    unsigned int const n = kernel->Length();
    DerivedPointer<Vector> shifts = Vector::Create(OpenChunk(n, Vector::Int), 1.0);
    unsigned int const* const indices = cref(kernel).UnsignedIntPointer();
    int* const out = shifts->IntPointer();
    for (unsigned int i = 0; i < n; ++i) {
        // Relative to the centre of the kernel, so that one addition to the address of a pixel
        // gives each neighbour.
        long const rows = static_cast<long>(indices[i] / w) - static_cast<long>(h / 2);
        long const columns = static_cast<long>(indices[i] % w) - static_cast<long>(w / 2);
        out[i] = static_cast<int>(static_cast<unsigned long>(rows) *
                                      static_cast<unsigned long>(image_width) +
                                  static_cast<unsigned long>(columns)); // wraps as int would
    }
    return shifts;
}

void index_convert_2images_const_center(int const* src, int n, int src_w, int src_h, int dst_w,
                                        int dst_h, int* dst)
{
    if (n > 0 && src_w == 0)
        Raise(err_precondition, "Image width is zero.");
    long const width = dst_w;
    // Both centres by integer division: for even sizes the centre is the pixel right and below, in
    // both images alike.
    long const offset = (static_cast<long>(dst_h / 2) - src_h / 2) * width + dst_w / 2 - src_w / 2;
    for (int i = 0; i < n; ++i) {
        long const index = src[i];
        dst[i] = static_cast<int>(static_cast<unsigned long>(offset) +
                                  static_cast<unsigned long>(index / src_w) *
                                      static_cast<unsigned long>(width) +
                                  static_cast<unsigned long>(index % src_w));
    }
}

} // namespace NKelmic
