#ifndef MEMBLOCK_EXAMPLES_MEASURE_OBJECTS_H
#define MEMBLOCK_EXAMPLES_MEASURE_OBJECTS_H

#include <measure/options.h>
#include <measure/picture.h>
#include <memblock/collections/table.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/stencil.h>

#include <vector>

namespace measure {

/// The planes to look for objects in: a grey page as it stands, without a copy; of colours their
/// rounded average; the pages of a stack, all of one size and type, as planes of a data cube.
std::vector<NKelmic::DerivedPointer<NKelmic::Image>> PlanesOf(std::vector<Page>&& pages);

/// Call `work` with the pixels of a picture, which have 8 or 16 bits.
/// Throws: ReadError for others.
template <class Work>
auto WithPixels(NKelmic::Image const& picture, Work&& work)
{
    if (picture.ElemType() == NKelmic::DataTypeBase::Byte)
        return work(picture.BytePointer());
    if (picture.ElemType() == NKelmic::DataTypeBase::UnsignedShort)
        return work(picture.UnsignedShortPointer());
    throw ReadError("has pixels of an unsupported kind");
}

/// The value that objects lie above: the one of the options, or Otsu's.
double ThresholdOf(NKelmic::Image const& picture, ObjectOptions const& options);

/// Find the objects of a picture: pixels above the threshold that touch, but for those in the
/// one-pixel frame. Numbered by their first pixels.
NKelmic::DerivedPointer<NKelmic::Stencil> FindObjects(NKelmic::Image const& picture,
                                                      ObjectOptions const& options);

/// Take the objects from a picture of labels.
/// Throws: ReadError if it is not as large as `picture`.
NKelmic::DerivedPointer<NKelmic::Stencil> TakeLabels(NKelmic::DerivedPointer<NKelmic::Image> labels,
                                                     NKelmic::Image const& picture);

/// Keep of each object what is not 0 in another picture of the same size, a mask or labels.
/// Throws: ReadError as `TakeLabels`.
NKelmic::DerivedPointer<NKelmic::Stencil> Within(NKelmic::Stencil const& objects,
                                                 NKelmic::DerivedPointer<NKelmic::Image> other);

/// Part each object into two zones: the pixels up to its mean, and those above it. Zones 2k - 1 and
/// 2k belong to object k: a "subobj" structure.
NKelmic::DerivedPointer<NKelmic::IntervalVector> ZonesOf(NKelmic::Image const& picture,
                                                         NKelmic::Stencil const& objects);

/// Add area and mean of both zones of each object to its row.
void AddZones(NKelmic::Table& table, NKelmic::Image const& picture,
              NKelmic::DerivedPointer<NKelmic::IntervalVector> const& zones);

/// A row for each object: label, area, first pixel, bounding box (both ends in it), minimum,
/// maximum, sum and mean of the picture in it.
///
/// An object without pixels has area 0 and first pixel -1.
NKelmic::DerivedPointer<NKelmic::Table> ObjectTable(NKelmic::Image const& picture,
                                                    NKelmic::Stencil const& objects);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OBJECTS_H
