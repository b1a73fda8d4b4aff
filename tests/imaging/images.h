#ifndef MEMBLOCK_TESTS_IMAGING_IMAGES_H
#define MEMBLOCK_TESTS_IMAGING_IMAGES_H

#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>

#include "support/raises.h"
#include "support/vectors.h"
#include "support/warnings.h"

#include <functional>

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
inline std::string TextOf(DerivedPointer<IndexVector> const& pixels)
{
    return TextOf(static_cast<Vector const&>(cref(pixels)));
}
inline std::string TextOf(PMemBlock const& vector)
{
    return TextOf(VectorOf(vector));
}

/// Pixels of an image of 5 x 4, or of another size.
inline DerivedPointer<IndexVector> Pixels(std::vector<unsigned int> const& list, unsigned int w = 5,
                                          unsigned int h = 4)
{
    return IndexVector::Create(UInts(list), w, h);
}

/// What `Consistent` says; empty for a sound object.
inline std::string Faults(MemBlock const& object)
{
    safestring message;
    bool const ok = object.Consistent(message, true);
    EXPECT_EQ(ok, message.empty());
    return message.c_str();
}

inline DataItem Get(PMemBlock const& object, char const* key)
{
    return object->GetSubItem(key, throw_always);
}
inline std::string GetText(PMemBlock const& object, char const* key)
{
    DataItem const item = Get(object, key);
    return item.GetType() == it_memblock ? TextOf(VectorOf(item.GetMemory()))
                                         : std::string(item.GetString().c_str());
}
inline bool Set(PMemBlock const& object, char const* key, SafeValue const& value)
{
    return object->SetSubItem(key, value, throw_always);
}

/// Expect of each action an error with this code and exactly this text.
struct Refusal {
    std::function<void()> action;
    unsigned int code;
    safestring text;
};
inline void ExpectRefusals(std::vector<Refusal> const& rows)
{
    for (auto const& [action, code, text] : rows) {
        SCOPED_TRACE(text.c_str());
        EXPECT_RAISES(action(), code, text);
    }
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_IMAGING_IMAGES_H
