#ifndef MEMBLOCK_EXAMPLES_MEASURE_OBJECTS_H
#define MEMBLOCK_EXAMPLES_MEASURE_OBJECTS_H

#include <measure/options.h>
#include <measure/picture.h>
#include <memblock/collections/table.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/stencil.h>

#include <vector>

namespace measure {

/// The planes to look for objects in: a grey page as it stands, without a copy; of colours their
/// rounded average; the pages of a stack, all of one size and type, as planes of a data cube.
std::vector<NKelmic::DerivedPointer<NKelmic::Image>> PlanesOf(std::vector<Page>&& pages);

/// Find the objects of a picture: pixels above the threshold that touch, but for those in the
/// one-pixel frame. Numbered by their first pixels.
NKelmic::DerivedPointer<NKelmic::Stencil> FindObjects(NKelmic::Image const& picture,
                                                      ObjectOptions const& options);

/// Take the objects from a picture of labels.
/// Throws: ReadError if it is not as large as `picture`.
NKelmic::DerivedPointer<NKelmic::Stencil> TakeLabels(NKelmic::DerivedPointer<NKelmic::Image> labels,
                                                     NKelmic::Image const& picture);

/// A row for each object: label, area, first pixel, bounding box (both ends in it), minimum,
/// maximum, sum and mean of the picture in it.
///
/// An object without pixels has area 0 and first pixel -1.
NKelmic::DerivedPointer<NKelmic::Table> ObjectTable(NKelmic::Image const& picture,
                                                    NKelmic::Stencil const& objects);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OBJECTS_H
