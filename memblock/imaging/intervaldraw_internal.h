#ifndef MEMBLOCK_IMAGING_INTERVALDRAW_INTERNAL_H
#define MEMBLOCK_IMAGING_INTERVALDRAW_INTERNAL_H

#include <memblock/imaging/image.h>

namespace NKelmic {

/// An image of zeros in which `count` pixels will be drawn.
DerivedPointer<Image> ImageToDrawIn(unsigned int w, unsigned int h, DataTypeBase::DataType type,
                                    unsigned long count);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_INTERVALDRAW_INTERNAL_H
