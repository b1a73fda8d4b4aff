#include <memblock/imaging/image.h>

#include <memblock/base/number.h>
#include <memblock/imaging/depth_kernels.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cmath>
#include <limits>
#include <utility>

namespace NKelmic {

void AverageTo8bpp(unsigned char const* src, int bytes_per_pixel, unsigned int pixels,
                   unsigned char* dst)
{
    if (bytes_per_pixel == 3)
        return depth::AverageBytes<3>(src, pixels, dst);
    if (bytes_per_pixel == 1) {
        std::copy_n(src, pixels, dst);
        return;
    }
    for (unsigned int i = 0; i < pixels; ++i) {
        // Rounds halves up, as the kernel for three channels does.
        int sum = (bytes_per_pixel + 1) / 2;
        for (int byte = 0; byte < bytes_per_pixel; ++byte)
            sum += *src++;
        dst[i] = static_cast<unsigned char>(sum / bytes_per_pixel);
    }
}

template <class T>
void DivideTo8bpp(T const* src, unsigned int n, unsigned char* dst, double* divisor)
{
    bool const given = divisor && *divisor > 0;
    double const x = given ? *divisor : depth::FiniteMaximum(src, n) / 255.0;
    // A whole divisor: what comes back by the factor then are whole numbers again. Never below 1,
    // as small values would be spread over the byte and seem more exact than they are.
    double const used = x <= 1.0 ? 1.0 : x == std::floor(x) ? x : std::floor(x) + 1;
    if (used == 1.0)
        depth::CutToBytes(src, n, dst);
    else
        depth::ScaleToBytes(src, n, dst, 1.0 / used);
    if (divisor)
        *divisor = used;
}

void Image::Depth8()
{
    bool const readable = Length() > 0 && IsInSet<NumericTypes>(ElemType());
    // From the cache where it is known, so that an image that cannot be converted costs no pass.
    if (readable && SecondaryDouble(key_min, throw_always) < 0)
        Raise(err_kind, "Conversion to 8bpp not supported for negative pixel values: %s", *this);
    // No value of Char is negative here, so its bits are those of Byte.
    if (ElemType() == Byte || ElemType() == Char)
        return SetElemType(Byte, false, true);

    TypedChunk bytes = OpenChunk(Length(), Byte);
    auto* const dst = static_cast<unsigned char*>(bytes.Data());
    void const* const src = std::as_const(*this).Pointer();
    double divisor = 0;
    auto const divide = [&]<class T>(TypeTag<T>) {
        // Colours are averaged, not divided: the result is how bright the pixel looks, so there is
        // no factor.
        if constexpr (std::is_same_v<T, triple>) {
            divisor = 1.0;
            AverageTo8bpp(static_cast<unsigned char const*>(src), 3, Length(), dst);
        } else if constexpr (std::is_integral_v<T>) {
            // Without sign the loop is that of one type, and a negative pixel shows as one above
            // the range.
            auto const* const pixels = static_cast<std::make_unsigned_t<T> const*>(src);
            double const greatest = depth::FiniteMaximum(pixels, Length());
            if (greatest >
                static_cast<double>(std::numeric_limits<T>::max())) // the cache was stale
                Raise(err_kind, "Cannot convert to 8bpp: image contains negative values: %g",
                      static_cast<double>(static_cast<T>(static_cast<unsigned int>(greatest))));
            divisor = greatest / 255.0;
            DivideTo8bpp(pixels, Length(), dst, &divisor);
        } else {
            DivideTo8bpp(static_cast<T const*>(src), Length(), dst, &divisor);
        }
    };
    // Settled: integers of 64 bits are refused.
    static_assert(type_count<NumericTypes> == 11, "bytes come earlier, 64 bits are refused");
    using Divided = TypeSet<int, unsigned int, short, unsigned short, float, double, triple>;
    WithElemTypeOr<Divided>(
        ElemType(), [&] { Raise(err_kind, "Conversion to 1 Bpp not implemented for: %s", *this); },
        divide);

    SetTypedChunk(bytes);
    if (divisor != 1.0 && Type() != visual) // a visual image has no factor
        SetFactor(Factor() * divisor);
}

namespace {

/// What a plane of T is divided by on its way to a byte: the greatest value of T becomes 255 or so.
template <class T>
constexpr long long plane_divisor = [] {
    static_assert(sizeof(T) == 1, "a wider pixel needs a row");
    return 1;
}();
template <>
constexpr long long plane_divisor<short> = 127;
template <>
constexpr long long plane_divisor<unsigned short> = 255;
template <>
constexpr long long plane_divisor<int> = 8388607;
template <>
constexpr long long plane_divisor<unsigned int> = 16777215;
template <>
constexpr long long plane_divisor<triple> = 65535;
template <>
constexpr long long plane_divisor<long long> = (1LL << 55) - 1;
template <>
constexpr long long plane_divisor<unsigned long long> = (1LL << 56) - 1;

template <class T>
unsigned char PlaneByte(T pixel)
{
    if constexpr (std::is_floating_point_v<T>) {
        return pixel > 0 ? static_cast<unsigned char>(std::min<T>(pixel, 255)) : 0; // NaN: 0
    } else {
        using Wide = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
        constexpr Wide divisor = plane_divisor<T>;
        Wide const v =
            static_cast<std::conditional_t<std::is_same_v<T, triple>, unsigned, T>>(pixel);
        // Planes come from filters, which overshoot on both sides.
        if (v <= 0)
            return 0;
        if (v >= 255 * divisor) // ahead of the sum, which could overflow
            return 255;
        return static_cast<unsigned char>((v + divisor / 2) / divisor);
    }
}

template <class T>
void ConstructImageFromColorPlanes_tmpl(PMemBlock const* planes, unsigned int n, unsigned char* dst)
{
    for (int channel = 0; channel < 3; ++channel) {
        T const* const src = MemCast<Vector const>(planes[channel].Pointer())->TypedPointer<T>();
        for (unsigned long i = 0; i < n; ++i)
            dst[3 * i + static_cast<unsigned long>(channel)] = PlaneByte(src[i]);
    }
}

} // namespace

DerivedPointer<Image> ConstructImageFromColorPlanes(DerivedPointer<Vector> const& v)
{
    // Checks type and sizes of all three, so that the loop below needs no test.
    if (!IsVectorOfColorPlanes(v))
        Raise(err_value, "Cannot convert into image: %s", v);
    PMemBlock const* const planes = cref(v).PMemoryPointer();
    auto const* const first = MemCast<Vector const>(planes[0].Pointer());
    DerivedPointer<Image> image =
        Image::Create(first->GetDimSize(0), first->GetDimSize(1), Vector::Triple, first->Factor());
    auto* const dst = static_cast<unsigned char*>(static_cast<Vector&>(*image).Pointer());
    WithElemType<NumericTypes>(
        first->ElemType(),
        "Function ConstructImageFromColorPlanes_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            ConstructImageFromColorPlanes_tmpl<T>(planes, first->Length(), dst);
        });
    return image;
}

#define MEMBLOCK_INSTANTIATE(T)                                                                    \
    template MEMBLOCK_API void DivideTo8bpp<T>(T const*, unsigned int, unsigned char*, double*);
MEMBLOCK_INSTANTIATE(unsigned char)
MEMBLOCK_INSTANTIATE(unsigned short)
MEMBLOCK_INSTANTIATE(unsigned int)
MEMBLOCK_INSTANTIATE(float)
MEMBLOCK_INSTANTIATE(double)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
