#include <measure/colours.h>

#include <memblock/core/typedchunk.h>

#include <type_traits>

namespace measure {

using namespace NKelmic;

namespace {

__extension__ using Wide = __int128;

/// Wide enough for the sum of three samples.
template <class T>
using Sum = std::conditional_t<std::is_floating_point_v<T>, T,
                               std::conditional_t<sizeof(T) < 8, long long, Wide>>;

template <class T>
T Average(T const* rgb)
{
    Sum<T> const sum = Sum<T>(rgb[0]) + rgb[1] + rgb[2];
    if constexpr (std::is_floating_point_v<T>) {
        return sum / 3;
    } else {
        Sum<T> const more = sum + 2;
        return static_cast<T>(more >= 0 ? more / 3 : (more - 2) / 3);
    }
}

} // namespace

void TakeChannel(PageHeader const& header, Channel channel, unsigned long pixels,
                 unsigned char const* samples, unsigned char* values)
{
    using Types = TypeUnion<TypeSet<char, short, int, long long>,
                            TypeSet<unsigned char, unsigned short, unsigned, unsigned long long>,
                            TypeSet<float, double>>;
    WithElemType<Types>(header.type, "%s", [&]<class T>(Elem<T>) {
        auto const* from = reinterpret_cast<T const*>(samples);
        T* const to = reinterpret_cast<T*>(values);
        int const c = static_cast<int>(channel);
        if (channel == Channel::grey)
            for (unsigned long i = 0; i < pixels; ++i, from += 3)
                to[i] = Average(from);
        else
            for (unsigned long i = 0; i < pixels; ++i, from += 3)
                to[i] = from[c];
    });
}

Page GreyPage(Page&& page, Channel channel)
{
    if (page.samples == 1)
        return std::move(page);
    Page grey{page, nullptr};
    grey.samples = 1;
    grey.bytes = std::make_unique_for_overwrite<unsigned char[]>(grey.Bytes());
    TakeChannel(page, channel, page.Pixels(), page.bytes.get(), grey.bytes.get());
    return grey;
}

} // namespace measure
