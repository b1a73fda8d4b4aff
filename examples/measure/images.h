#ifndef MEMBLOCK_EXAMPLES_MEASURE_IMAGES_H
#define MEMBLOCK_EXAMPLES_MEASURE_IMAGES_H

#include <measure/picture.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>

#include <vector>

namespace measure {

/// A page of one sample a pixel as an image that takes its bytes over, without a copy.
NKelmic::DerivedPointer<NKelmic::Image> GreyImage(Page& page);

/// More than one grey page, all of one size and type.
bool IsStack(std::vector<Page> const& pages);

/// The pages of a stack as the planes of a data cube.
NKelmic::DerivedPointer<NKelmic::DataCube> CubeOf(std::vector<Page>& pages);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_IMAGES_H
