#include <memblock/imaging/datacube.h>

#include <memblock/imaging/image.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cmath>
#include <cstring>
#include <utility>

namespace NKelmic {

namespace {

/// Factors that are closer count as one.
constexpr double same_factor = 1e-12;

/// An image without a pixel in the buffer of the cube, which is about to change.
DerivedPointer<Image> Apart(DerivedPointer<Image> const& image, Vector const& cube)
{
    auto const* const pixels =
        static_cast<char const*>(static_cast<Vector const&>(cref(image)).Pointer());
    auto const* const data = static_cast<char const*>(cube.Chunk().Chunk().Data());
    // The whole buffer counts, not only the elements: a cube may begin in the middle of one.
    bool const inside = pixels >= data && pixels < data + cube.Chunk().Chunk().Size();
    return inside ? DerivedPointer<Image>(image->Clone(false)) : image;
}

} // namespace

void DataCube::CheckPlane(int z, unsigned int limit) const
{
    if (z < 0 || static_cast<unsigned int>(z) >= limit)
        Raise(err_kind, "No such plane in data cube: %d", z);
    CheckElemTypeSupported(ElemType()); // planes are moved byte by byte
}

unsigned long DataCube::PlaneLength() const
{
    return static_cast<unsigned long>(width()) * height();
}

char const* DataCube::Plane(int z) const
{
    return static_cast<char const*>(Pointer()) +
           PlaneLength() * static_cast<unsigned long>(z) * ElemSize();
}

DerivedPointer<Image> DataCube::GetPlane(int z) const
{
    CheckPlane(z, depth());
    unsigned long const length = PlaneLength();
    return Image::Create(CopyOfRange(Chunk(), length * static_cast<unsigned long>(z), length),
                         width(), height(), Factor());
}

DerivedPointer<Image> DataCube::GetTempPlane(int z) const
{
    CheckPlane(z, depth());
    Pointer(); // what is put off must be done now
    // Shares the buffer, so a write to either side copies first: readers get a plane without a
    // copy, and it stays what it was.
    unsigned long const first = PlaneLength() * static_cast<unsigned long>(z);
    TypedChunk const chunk(PlaneLength(), ElemType(), Chunk().Chunk(),
                           Chunk().GetOffset() + first * ElemSize());
    return Image::Create(chunk, width(), height(), Factor());
}

DerivedPointer<Image> DataCube::GetTempPlane(int z)
{
    CheckPlane(z, depth());
    Vector::Pointer(); // makes the buffer private
    ContentHasBeenChanged();
    // No owner: a write to the plane is a write to the cube. The caller keeps the cube alive and
    // its size.
    return Image::Create(const_cast<char*>(std::as_const(*this).Plane(z)), nullptr, width(),
                         height(), ElemType(), Factor());
}

void DataCube::DeletePlane(int z)
{
    CheckPlane(z, depth());
    unsigned long const bytes = PlaneLength() * ElemSize();
    unsigned long const first = bytes * static_cast<unsigned long>(z);
    char* const data = static_cast<char*>(Vector::Pointer());
    // Moved ahead of the resize, which drops the end.
    std::memmove(data + first, data + first + bytes, bytes * depth() - first - bytes);
    unsigned int const sizes[] = {width(), height(), depth() - 1};
    ChangeDimSizes(sizes, 3);
    ContentHasBeenChanged();
}

void DataCube::ReplacePlane(int z, DerivedPointer<Image> image)
{
    CheckPlane(z, depth());
    image = ConformingPlane(std::move(image));
    auto const& plane = static_cast<Vector const&>(cref(image));
    void const* const pixels = plane.Pointer();
    char* const data = static_cast<char*>(Vector::Pointer()); // `image` keeps a shared buffer
    unsigned long const bytes = PlaneLength() * ElemSize();
    std::memmove(data + bytes * static_cast<unsigned long>(z), pixels, bytes);
    ContentHasBeenChanged();
}

void DataCube::InsertPlane(int z, DerivedPointer<Image> image)
{
    CheckPlane(z, depth() + 1);
    // The resize may move the buffer, and with it pixels that are inserted from the cube itself.
    image = Apart(ConformingPlane(std::move(image)), *this);
    unsigned int const sizes[] = {width(), height(), depth() + 1};
    ChangeDimSizes(sizes, 3);
    unsigned long const bytes = PlaneLength() * ElemSize();
    unsigned long const first = bytes * static_cast<unsigned long>(z);
    char* const data = static_cast<char*>(Vector::Pointer());
    std::memmove(data + first + bytes, data + first, bytes * (depth() - 1) - first);
    std::memcpy(data + first, static_cast<Vector const&>(cref(image)).Pointer(), bytes);
    ContentHasBeenChanged();
}

DerivedPointer<Image> DataCube::ConformingPlane(DerivedPointer<Image> image) const
{
    if (!PMemBlock(image).Conforms("image"))
        Raise(err_kind, "Not an image: %s", image);
    if (image->width() != width() || image->height() != height())
        Raise(err_kind, "The image dimensions (%dx%d) differ from datacube dimensions(%dx%d)",
              image->width(), image->height(), width(), height());
    try {
        if (image->ElemType() != ElemType())
            image = cref(image).ConvertElemsToType(ElemType(), true, false);
        if (std::fabs(image->Factor() - Factor()) > same_factor) {
            image = image->Clone(true);
            image->SetType(Image::data); // no other class has a factor
            image->EnsureFactor(Factor());
        }
    } catch (Exception const& e) {
        // The code stays that of the cause.
        Raise(e.Code(), "While preparing image plain for inclusion in the data cube (%s): %s",
              *this, e.what());
    }
    return image;
}

} // namespace NKelmic
