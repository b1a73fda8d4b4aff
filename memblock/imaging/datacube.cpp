#include <memblock/imaging/datacube.h>

#include <memblock/base/number.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

namespace NKelmic {

namespace {

TypedChunk CheckedChunk(unsigned int const* dims, unsigned long n, DataType type)
{
    // Before memory is asked for: these run ahead of the constructor's body.
    DataCube::CheckElemTypeSupported(type);
    if (ShapeLength(dims, 3) != n)
        Raise(err_kind, "Vector length %d is not the product of dimension sizes.", n);
    return NewChunk(n, type);
}

TypedChunk CheckedChunk(unsigned int const* dims, unsigned long n, DataType type, void* mem,
                        void (*release)(void*))
{
    DataCube::CheckElemTypeSupported(type);
    if (ShapeLength(dims, 3) != n)
        Raise(err_kind, "Vector length %d is not the product of dimension sizes.", n);
    return ForeignChunk(n, type, mem, 0, release);
}

} // namespace

DataCube::DataCube(TypedChunk const& chunk, unsigned int const* dims, double factor)
    : GeomBlock(chunk, {dims[0], dims[1], dims[2]}, factor)
{
}

DataCube::DataCube(unsigned int const* dims, unsigned long n, DataType type, double factor)
    : DataCube(CheckedChunk(dims, n, type), dims, factor)
{
}

DataCube::DataCube(unsigned int const* dims, unsigned long n, DataType type, double factor,
                   void* mem, void (*release)(void*))
    : DataCube(CheckedChunk(dims, n, type, mem, release), dims, factor)
{
}

void DataCube::CheckElemTypeSupported(DataType type)
{
    if (!IsInSet<NumericTypes>(type))
        Raise(err_kind, "Element type \"%s\" not supported in datacube.", TypeToString(type));
}

DerivedPointer<DataCube> DataCube::Create()
{
    return Create(0, 0, 0, Byte, 1.0);
}

DerivedPointer<DataCube> DataCube::Create(int w, int h, int d, DataType type, double factor)
{
    // A negative size becomes one that is too large for any vector, and is refused as such.
    unsigned int const dims[] = {static_cast<unsigned int>(w), static_cast<unsigned int>(h),
                                 static_cast<unsigned int>(d)};
    return DerivedPointer<DataCube>(new DataCube(dims, ShapeLength(dims, 3), type, factor));
}

DerivedPointer<DataCube> DataCube::Create(int w, int h, int d, DataType type, double factor,
                                          void* mem, void (*release)(void*))
{
    unsigned int const dims[] = {static_cast<unsigned int>(w), static_cast<unsigned int>(h),
                                 static_cast<unsigned int>(d)};
    return DerivedPointer<DataCube>(
        new DataCube(dims, ShapeLength(dims, 3), type, factor, mem, release));
}

char const* DataCube::Class() const
{
    return StaticClass();
}

bool DataCube::Conforms(char const* classname) const
{
    return SameName(classname, "datacube") || SameName(classname, "datacubestub") ||
           Vector::Conforms(classname);
}

char const* DataCube::ClassDescription() const
{
    return "DataCube - encapsulates a 3-dimensional C array of several element types.\n"
           "Derived from: GeomChunk<3>\n"
           "Subkeys:\n"
           "\twidth - return the size of first dimension\n"
           "\theight - return the size of second dimension\n"
           "\tdepth - return the size of third dimension\n"
           "Invariants:\n"
           "\twidth*height*depth == length\n";
}

PMemBlock DataCube::DoClone(int mode) const
{
    DerivedPointer<DataCube> copy(new DataCube(*this));
    copy->FinishClone(mode);
    return copy;
}

safestring DataCube::DoGetDescription() const
{
    return Text("Datacube %dx%dx%d of %s's, raw factor %s", width(), height(), depth(),
                TypeToString(ElemType()), str(Factor(), 6));
}

} // namespace NKelmic
