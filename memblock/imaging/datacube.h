#ifndef MEMBLOCK_IMAGING_DATACUBE_H
#define MEMBLOCK_IMAGING_DATACUBE_H

#include <memblock/imaging/geomblock.h>

namespace NKelmic {

class Image;
class IndexVector;

/// A stack of planes of one size: element (x, y, z) is x + width * (y + height * z).
///
/// Elements are integers, floats or Triple. Errors raised here carry code 128 unless another is
/// given. Numbers out of range: "No such plane in data cube: %d", "Point x,y is out of range: %d,
/// %d".
class MEMBLOCK_API DataCube : public GeomBlock<3> {
public:
    static char const* StaticClass() { return "datacube"; }

    /// `n` must be the product of the three sizes.
    DataCube(unsigned int const* dims, unsigned long n, DataType type, double factor);
    DataCube(unsigned int const* dims, unsigned long n, DataType type, double factor, void* mem,
             void (*release)(void*));
    static DerivedPointer<DataCube> Create(); ///< empty, of Byte
    static DerivedPointer<DataCube> Create(int w, int h, int d, DataType type, double factor);
    static DerivedPointer<DataCube> Create(int w, int h, int d, DataType type, double factor,
                                           void* mem, void (*release)(void*));
    /// Throws: "Element type \"%s\" not supported in datacube.".
    static void CheckElemTypeSupported(DataType type);

    char const* Class() const override;
    bool Conforms(char const*) const override; ///< "datacube" and "datacubestub"
    DataItem DoVerb(char const*, int argc, SafeValue* argv) override;
    char const* ClassDescription() const override;

protected:
    PMemBlock DoClone(int mode) const override;
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;

public:
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;

    unsigned int width() const { return GetDimSizeArray()[0]; }
    unsigned int height() const { return GetDimSizeArray()[1]; }
    unsigned int depth() const { return GetDimSizeArray()[2]; }

    DerivedPointer<Image> GetPlane(int z) const; ///< a copy, with the factor of the cube
    /// A plane in place: it shares the buffer, and the first write to either copies.
    DerivedPointer<Image> GetTempPlane(int z) const;
    /// A plane in place, through which the cube is written. Good only while the cube lives and
    /// keeps its buffer; writes after the cube was read need its `ContentHasBeenChanged`.
    DerivedPointer<Image> GetTempPlane(int z);
    void DeletePlane(int z);
    void ReplacePlane(int z, DerivedPointer<Image> image);
    void InsertPlane(int z, DerivedPointer<Image> image); ///< z up to depth, which appends
    /// The image with the element type and factor of the cube; itself if it has them.
    ///
    /// Throws: "Not an image: %s"; "The image dimensions (%dx%d) differ from datacube
    /// dimensions(%dx%d)"; "While preparing image plain for inclusion in the data cube (%s): %s".
    DerivedPointer<Image> ConformingPlane(DerivedPointer<Image> image) const;
    /// Copy the elements above (x, y) into a new vector: depth elements, raw, with the factor of
    /// the cube. One strided pass.
    DerivedPointer<Vector> GetZVector(int x, int y) const;
    /// Write raw elements above (x, y), as int or for floats as double.
    ///
    /// Throws: "Point x=%d,y=%d is outside of datacube."; "Not a vector: %s"; "Wrong z-vector
    /// length %d, should be %d".
    void ReplaceZVector(int x, int y, DerivedPointer<Vector> const& v);
    /// The numbers of all elements of that raw value; the target is this cube.
    DerivedPointer<IndexVector> GetMaskVector(int value) const;
    /// The same; for integer elements, Triple among them, the value is rounded.
    DerivedPointer<IndexVector> GetMaskVector(double value) const;

protected:
    DataCube(DataCube const&) = default;

private:
    DataCube(TypedChunk const& chunk, unsigned int const* dims, double factor);
    bool Holds(int x, int y) const;
    unsigned long PlaneLength() const;
    char const* Plane(int z) const;
    void CheckPlane(int z, unsigned int limit) const;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_DATACUBE_H
