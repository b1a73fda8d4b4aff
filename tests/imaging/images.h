#ifndef MEMBLOCK_TESTS_IMAGING_IMAGES_H
#define MEMBLOCK_TESTS_IMAGING_IMAGES_H

#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>

#include "support/raises.h"
#include "support/vectors.h"
#include "support/warnings.h"

namespace NKelmic {

/// An image of the pixel type of T with these raw values, row after row.
template <class T>
DerivedPointer<Image> Picture(unsigned int w, unsigned int h, std::vector<T> const& values,
                              double factor = 1.0)
{
    DerivedPointer<Image> image = Image::Create(w, h, type_of<T>::value, factor);
    std::copy(values.begin(), values.end(), image->template TypedPointer<T>());
    return image;
}

inline std::string TextOf(DerivedPointer<Image> const& image)
{
    return TextOf(static_cast<Vector const&>(cref(image)));
}

/// What `Consistent` says; empty for a sound object.
inline std::string Faults(MemBlock const& object)
{
    safestring message;
    bool const ok = object.Consistent(message, true);
    EXPECT_EQ(ok, message.empty());
    return message.c_str();
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_IMAGING_IMAGES_H
