#ifndef MEMBLOCK_IMAGING_IMAGE_H
#define MEMBLOCK_IMAGING_IMAGE_H

#include <memblock/core/imageclass.h>
#include <memblock/imaging/geomblock.h>

namespace NKelmic {

class IndexVector;
class IntervalVector;

/// A picture: width times height elements, row after row, (0,0) the top left corner.
///
/// The logical class says what the pixels mean. To change it is a checked operation that may
/// rewrite them, see `DoSetLgType`. A factor other than 1.0 remains with class data only.
///
/// Errors raised here carry code 128 unless another is given.
class MEMBLOCK_API Image : public GeomBlock<2> {
public:
    static char const* StaticClass() { return "image"; }

    enum logic_class_t {
        data = lg_data,       ///< measured values
        visual = lg_visual,   ///< for the eye
        mask = lg_mask,       ///< bytes; those that are not 0 belong to the mask
        stencil = lg_stencil, ///< 16 or 32 bits; pixel k marks object k; the one-pixel frame is 0
    };
    enum {
        key_stencil_count = 10301, ///< the number of objects; there while the class is stencil
        key_edge_width = 10302     ///< pixels along each side that are not to be trusted
    };

    /// Throws: "TypedChunk::SizeOf(): unknown vector type" (a plain text); 256 for too many pixels.
    static DerivedPointer<Image> Create(unsigned int w, unsigned int h, DataType type,
                                        double factor);
    /// Take over memory for w * h pixels; `release` runs when its last user goes.
    /// Throws, and leaves the memory to the caller: "A null buffer cannot hold %u elements.".
    static DerivedPointer<Image> Create(void* mem, void (*release)(void*), unsigned int w,
                                        unsigned int h, DataType type, double factor);
    /// Share a chunk; one of another length is copied into the right one.
    static DerivedPointer<Image> Create(TypedChunk const& chunk, unsigned int w, unsigned int h,
                                        double factor);

    unsigned int const& width() const { return GetDimSizeArray()[0]; }
    unsigned int const& height() const { return GetDimSizeArray()[1]; }
    unsigned int Bpp() const { return ElemSize(); } ///< bytes of a pixel

    char const* Class() const override;
    /// "image"; "color_data" for Triple pixels; "mask" and "stencil" by the logical class alone.
    bool Conforms(char const*) const override;
    DataItem DoVerb(char const*, int argc, SafeValue* argv) override;
    bool AddConvertArg(safestring const&, DataItem const&, ConvertOptions&,
                       ThrowHandlerFunc) const override;
    PMemBlock ConvertFrom(PMemBlock, ConvertOptions const&) const override;
    bool Consistent(safestring& message, bool deep) const override;
    char const* ClassDescription() const override;
    safestring LgType2String(int) const override;
    int String2LgType(safestring const&) override;

protected:
    PMemBlock DoClone(int mode) const override;

public:
    /// As vectors, and equal edge width, logical class and number of objects.
    ///
    /// Settled: the dimensions are not compared.
    bool Equals(MemBlock const&) const override;

protected:
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;

public:
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;
    /// Change the logical class, with what the class demands:
    /// - mask: pixels of more than a byte become bytes 1 and 0 for not 0 and 0;
    /// - stencil: a frame that is not 0 is zeroed with a warning, the count of objects is recorded;
    /// - all but data: a factor is dropped, with a warning.
    ///
    /// Throws, with nothing changed: "Attempt to declare a non-16, non-32 bpp image to be a
    /// stencil: %s"; "Possible illegal modification of input image: %s" where a constant object
    /// would have to change; 4096 "Function downconvert not implemented for data type '%s'".
    void DoSetLgType(int lg_type) override;
    /// Throws for object elements: "Cannot change image element type to \"%s\", this type is
    /// supported for vectors only.".
    void SetElemType(DataType, bool contents, bool keep_factor) override;

    void SetType(logic_class_t type) { DoSetLgType(type); }
    logic_class_t Type() const { return static_cast<logic_class_t>(LgType()); }
    /// Throws: 32 "Not a valid image type: ...".
    static logic_class_t String2Type(safestring const&);

    int GetEdgeWidth() const; ///< 0 if none is recorded
    void SetEdgeWidth(int);   ///< unchecked; `Consistent` judges it
    /// Record the number of objects; a negative one means the greatest pixel on a stencil, for
    /// "none" on another image. The handler gets what an empty or unreadable stencil raises.
    void SetStencilCount(int n, ThrowHandlerFunc = throw_always);
    /// The recorded number, or the greatest pixel if that is more; a stencil then records it.
    ///
    /// 0 for an image without pixels. A pixel beyond int counts as the greatest int.
    int GetStencilCount() const;

    /// Cut out a rectangle, the second corner not included; -1 means width or height. Corners
    /// may be exchanged; without area the result is an empty image of that size.
    DerivedPointer<Image> Crop(int x1, int y1, int x2 = -1, int y2 = -1) const;
    /// Cut out a rectangle that may reach beyond the image, where the result is 0.
    DerivedPointer<Image> DoCrop(int x1, int y1, int x2, int y2) const;
    /// Go to one byte a pixel, in place: colours are averaged, other pixels divided by a number
    /// that the factor makes up for (in a visual image, which has no factor, it is lost).
    ///
    /// Throws: "Conversion to 8bpp not supported for negative pixel values: %s"; "Conversion to 1
    /// Bpp not implemented for: %s" for 64-bit integers and objects.
    void Depth8();
    /// Cut out the object with this label, one more pixel around it, all other pixels 0. Null if no
    /// pixel has the label. `x` and `y`, if not null, get the place of the cut.
    ///
    /// Throws: 4096 "Image::ExtractCoded(): pixel type not supported: %s" for 8-byte pixels.
    DerivedPointer<Image> ExtractCoded(unsigned int code, int* x, int* y) const;
    /// List the pixels that are not 0, in ascending order. Two passes over bytes; wider pixels go
    /// through a byte copy.
    DerivedPointer<IndexVector> GetMaskVector() const;
    /// List the pixels object by object, with as many objects as `GetStencilCount` gives.
    DerivedPointer<IntervalVector> GetStencilVector() const;
    /// Exchange rows and columns, into a new image.
    DerivedPointer<Image> Transposed() const;

protected:
    Image(TypedChunk const& chunk, unsigned int w, unsigned int h, double factor);
    Image(Image const&);

private:
    void PrepareStencil();
    void PrepareMask();
    void DropFactor(int lg_type);
    void CheckWritable() const;
    void RecordStencilCount(int n);
    bool RecordedStencilCount(int& n) const;
    int RawMaximum() const;
    DerivedPointer<Image> WithShape(unsigned int w, unsigned int h, TypedChunk const&) const;
    void SetPixel(unsigned int index, SafeValue const& value);
    bool SetPixel(safestring const& x, safestring const& y, SafeValue const& value,
                  ThrowHandlerFunc handler);
    friend class ElemTypeChange;
};

/// Test, or with `clear` zero, the frame of one pixel; true if it is 0 afterwards. The buffer is
/// made private either way.
///
/// Pixels of 8 bytes count as doubles: -0.0 is clear, NaN is not. Throws: "Image border clearing
/// not supported for: %s" for other widths than 1, 2, 3, 4, 8.
MEMBLOCK_API bool check_image_borders_clear(DerivedPointer<Image> image, bool clear);
/// The mean of the bytes of each pixel, rounded.
MEMBLOCK_API void AverageTo8bpp(unsigned char const* src, int bytes_per_pixel, unsigned int pixels,
                                unsigned char* dst);
/// Divide pixels so that they fit a byte.
///
/// divisor: one above 0 is used, made whole upwards; otherwise one that takes the greatest finite
/// pixel to 255. It comes out as what was used, 1.0 if the pixels were only copied. NaN and what
/// does not fit a byte becomes 0.
template <class T>
MEMBLOCK_API void DivideTo8bpp(T const* src, unsigned int n, unsigned char* dst, double* divisor);
/// Join three planes of one shape, type and factor into a Triple image; wide planes are divided.
///
/// Throws: 512 "Cannot convert into image: %s" for another vector.
MEMBLOCK_API DerivedPointer<Image> ConstructImageFromColorPlanes(DerivedPointer<Vector> const&);
/// Store the indices of the pixels that are not 0 and return their number. `indices` needs room
/// for 8 more than there are.
template <class T>
MEMBLOCK_API unsigned int getmaskvector_tmpl(T const* pixels, unsigned int n,
                                             unsigned int* indices);
/// List `n` pixels by their labels 1 to k; other labels are passed over.
///
/// counts: null, or gets the number of pixels of label v in counts[v], 0 to k. start: k + 12 zeros;
/// label v then owns positions start[v] up to start[v + 1], in ascending pixel order. indices: gets
/// the list, from `mb_malloc`. Two passes by runs of equal pixels; no other memory.
template <class T>
MEMBLOCK_API void find_point_address3(unsigned int n, T const* pixels, unsigned int k,
                                      unsigned int* counts, unsigned int* start,
                                      unsigned int** indices);
/// dst[x * h + y] = src[x + y * w], in tiles.
template <class T>
MEMBLOCK_API void transpose_tmpl(T const* src, T* dst, unsigned int w, unsigned int h);
/// 1 for each pixel that is not 0, else 0.
template <class T>
MEMBLOCK_API void downconvert(T const* src, unsigned char* dst, unsigned int n);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_IMAGE_H
