#ifndef MEMBLOCK_IMAGING_PIXEL_KERNELS_H
#define MEMBLOCK_IMAGING_PIXEL_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/core/datatype.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

/// Loops over the pixels of one buffer.
namespace NKelmic::pixels {

// ---- the frame of one pixel

template <class P>
bool IsZero(P pixel)
{
    return pixel == P(0);
}

template <class P>
bool FrameIsClear(P const* pixels, unsigned int w, unsigned int h)
{
    if (w == 0 || h == 0)
        return true;
    std::size_t const stride = w;
    P const* const last = pixels + stride * (h - 1);
    auto const clear_column = [&](P const* p) {
        for (unsigned int y = 0; y < h; ++y, p += stride)
            if (!IsZero(*p))
                return false;
        return true;
    };
    return std::all_of(pixels, pixels + w, IsZero<P>) && std::all_of(last, last + w, IsZero<P>) &&
           clear_column(pixels) && clear_column(pixels + w - 1);
}

template <class P>
void ClearFrame(P* pixels, unsigned int w, unsigned int h)
{
    if (w == 0 || h == 0)
        return;
    std::size_t const stride = w;
    std::fill_n(pixels, w, P(0));
    std::fill_n(pixels + stride * (h - 1), w, P(0));
    for (unsigned int y = 0; y < h; ++y, pixels += stride)
        pixels[0] = pixels[w - 1] = P(0);
}

// ---- pixels that are not 0

template <class T>
MEMBLOCK_MULTIVERSION void NonZeroBytes(T const* __restrict src, unsigned char* __restrict dst,
                                        unsigned int n)
{
    for (unsigned int i = 0; i < n; ++i)
        if constexpr (std::is_same_v<T, triple>)
            dst[i] = (src[i].b[0] | src[i].b[1] | src[i].b[2]) != 0;
        else
            dst[i] = src[i] != T(0);
}

constexpr unsigned int block = 64;                                  // pixels of one mask
constexpr std::uint64_t stop_bit = std::uint64_t{1} << (block - 1); // gives any mask a lowest bit

#ifdef __SSE2__
MEMBLOCK_INLINE_LOOP __m128i Load(void const* p)
{
    return _mm_loadu_si128(static_cast<__m128i const*>(p));
}

MEMBLOCK_INLINE_LOOP std::uint64_t NonZeroMaskOfBytes(void const* bytes)
{
    auto const* const p = static_cast<unsigned char const*>(bytes);
    std::uint64_t zeros = 0;
    for (unsigned int part = 0; part < block; part += 16) {
        __m128i const equal = _mm_cmpeq_epi8(Load(p + part), _mm_setzero_si128());
        zeros |= static_cast<std::uint64_t>(_mm_movemask_epi8(equal)) << part;
    }
    return ~zeros;
}
#endif

/// Bit j is set if pixel j of 64 is not 0.
template <class T>
MEMBLOCK_INLINE_LOOP std::uint64_t NonZeroMask(T const* p)
{
#ifdef __SSE2__
    if constexpr (sizeof(T) == 1)
        return NonZeroMaskOfBytes(p);
#endif
    std::uint64_t mask = 0;
    for (unsigned int j = 0; j < block; ++j)
        mask |= static_cast<std::uint64_t>(p[j] != T(0)) << j;
    return mask;
}

/// For each byte the places of its bits; what follows the last is of no account.
struct BitPlaces {
    unsigned char at[256][8]{};
    constexpr BitPlaces()
    {
        for (unsigned int byte = 0; byte < 256; ++byte)
            for (unsigned int bit = 0, k = 0; bit < 8; ++bit)
                if (byte >> bit & 1)
                    at[byte][k++] = static_cast<unsigned char>(bit);
    }
};
inline constexpr BitPlaces bit_places;

template <class T>
MEMBLOCK_MULTIVERSION unsigned int CountNonZero(T const* __restrict p, unsigned int n)
{
    unsigned long count = 0;
    unsigned int const whole = n - n % block;
    for (unsigned int base = 0; base < whole; base += block)
        count += static_cast<unsigned int>(__builtin_popcountll(NonZeroMask(p + base)));
    for (unsigned int i = whole; i < n; ++i)
        count += p[i] != T(0);
    return static_cast<unsigned int>(count);
}

/// Store the indices of the set bits of a mask of the 64 pixels from `base` on; returns their end.
///
/// Few bits are taken one by one, but always four of them: how many there are steers no branch. Of
/// many, each byte of the mask stores eight entries, of which its bits count.
MEMBLOCK_INLINE_LOOP unsigned int* StoreBits(std::uint64_t mask, unsigned int base,
                                             unsigned int* __restrict next)
{
    constexpr unsigned int few = 4;
    unsigned int const count = static_cast<unsigned int>(__builtin_popcountll(mask));
    if (count <= few) {
        std::uint64_t rest = mask;
        for (unsigned int j = 0; j < few; ++j, rest &= rest - 1)
            next[j] = base + static_cast<unsigned int>(__builtin_ctzll(rest | stop_bit));
        return next + count;
    }
    for (unsigned int part = 0; part < block; part += 8) {
        // Not from the part before, so that the parts need not wait for each other.
        std::uint64_t const before = mask & ((std::uint64_t{1} << part) - 1);
        unsigned int* const to = next + __builtin_popcountll(before);
        unsigned char const* const places = bit_places.at[mask >> part & 0xFF];
        for (unsigned int j = 0; j < 8; ++j)
            to[j] = base + part + places[j];
    }
    return next + count;
}

/// Store the indices of the pixels that are not 0; up to 8 entries behind the last are written.
///
/// 256 pixels become four bit masks; where all are empty, which large areas are, they are passed
/// over.
template <class T>
MEMBLOCK_MULTIVERSION unsigned int ListNonZero(T const* __restrict p, unsigned int n,
                                               unsigned int* __restrict out)
{
    constexpr unsigned int blocks = 4;
    unsigned int* next = out;
    unsigned int base = 0;
    for (; n - base >= blocks * block; base += blocks * block) {
        std::uint64_t masks[blocks];
        std::uint64_t any = 0;
        for (unsigned int i = 0; i < blocks; ++i)
            any |= masks[i] = NonZeroMask(p + base + i * block);
        if (any == 0)
            continue;
        for (unsigned int i = 0; i < blocks; ++i)
            next = StoreBits(masks[i], base + i * block, next);
    }
    for (; n - base >= block; base += block)
        next = StoreBits(NonZeroMask(p + base), base, next);
    for (; base < n; ++base)
        if (p[base] != T(0))
            *next++ = base;
    return static_cast<unsigned int>(next - out);
}

// ---- runs of equal pixels

/// Bit j is set if pixel j of 64 differs from the one before it.
template <class T>
MEMBLOCK_INLINE_LOOP std::uint64_t ChangeMask(T const* p)
{
#ifdef __SSE2__
    auto const equal = [](T const* q) {
        if constexpr (sizeof(T) == 2)
            return _mm_cmpeq_epi16(Load(q), Load(q - 1));
        else
            return _mm_packs_epi32(_mm_cmpeq_epi32(Load(q), Load(q - 1)),
                                   _mm_cmpeq_epi32(Load(q + 4), Load(q + 3)));
    };
    std::uint64_t same = 0;
    for (unsigned int part = 0; part < block; part += 16) {
        __m128i const bytes = _mm_packs_epi16(equal(p + part), equal(p + part + 8));
        same |= static_cast<std::uint64_t>(_mm_movemask_epi8(bytes)) << part;
    }
    return ~same;
#else
    std::uint64_t mask = 0;
    for (unsigned int j = 0; j < block; ++j)
        mask |= static_cast<std::uint64_t>(p[j] != p[j - 1]) << j;
    return mask;
#endif
}

/// Call `take(label, from, to)` for each run of equal pixels, in order.
template <class T, class Take>
MEMBLOCK_INLINE_LOOP void ForEachRun(T const* p, unsigned int n, Take&& take)
{
    static_assert(sizeof(T) == 2 || sizeof(T) == 4);
    if (n == 0)
        return;
    unsigned int from = 0;
    unsigned int at = 1;
    auto const end_run = [&](unsigned int to) __attribute__((always_inline))
    {
        take(p[from], from, to);
        from = to;
    };
    for (; n - at >= block; at += block)
        for (std::uint64_t mask = ChangeMask(p + at); mask != 0; mask &= mask - 1)
            end_run(at + static_cast<unsigned int>(__builtin_ctzll(mask)));
    for (; at < n; ++at)
        if (p[at] != p[at - 1])
            end_run(at);
    end_run(n);
}

/// Add the pixels of label v, 1 to k, to sizes[v].
template <class T>
MEMBLOCK_MULTIVERSION void CountLabels(T const* p, unsigned int n, unsigned int k,
                                       unsigned int* __restrict sizes)
{
    ForEachRun(
        p, n, [&](T label, unsigned int from, unsigned int to) __attribute__((always_inline)) {
            if (label - 1U < k)
                sizes[label] += to - from;
        });
}

/// Store the indices of the pixels of label v from next[v] on, which moves behind them.
template <class T>
MEMBLOCK_MULTIVERSION void FillLabels(T const* p, unsigned int n, unsigned int k,
                                      unsigned int* __restrict next,
                                      unsigned int* __restrict indices)
{
    ForEachRun(
        p, n, [&](T label, unsigned int from, unsigned int to) __attribute__((always_inline)) {
            if (label - 1U >= k)
                return;
            unsigned int* out = indices + next[label];
            next[label] += to - from;
            for (; to - from >= 8; from += 8, out += 8)
                for (unsigned int j = 0; j < 8; ++j)
                    out[j] = from + j;
            while (from < to)
                *out++ = from++;
        });
}

// ---- transposition

/// dst[x * h + y] = src[x + y * w], in tiles of a cache line a side through a small buffer.
template <class P>
MEMBLOCK_MULTIVERSION void Transpose(P const* __restrict src, P* __restrict dst, std::size_t w,
                                     std::size_t h)
{
    constexpr std::size_t side = sizeof(P) > 4 ? 8 : 64 / (sizeof(P) == 3 ? 4 : sizeof(P));
    P tile[side][side];
    for (std::size_t y0 = 0; y0 < h; y0 += side)
        for (std::size_t x0 = 0; x0 < w; x0 += side) {
            std::size_t const rows = std::min(side, h - y0);
            std::size_t const columns = std::min(side, w - x0);
            P const* from = src + x0 + y0 * w;
            if (rows == side && columns == side) {
                for (std::size_t y = 0; y < side; ++y, from += w)
                    for (std::size_t x = 0; x < side; ++x)
                        tile[x][y] = from[x];
            } else {
                for (std::size_t y = 0; y < rows; ++y, from += w)
                    for (std::size_t x = 0; x < columns; ++x)
                        tile[x][y] = from[x];
            }
            for (std::size_t x = 0; x < columns; ++x)
                std::memcpy(static_cast<void*>(dst + (x0 + x) * h + y0), tile[x], rows * sizeof(P));
        }
}

} // namespace NKelmic::pixels

#endif // MEMBLOCK_IMAGING_PIXEL_KERNELS_H
