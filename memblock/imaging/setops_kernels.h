#ifndef MEMBLOCK_IMAGING_SETOPS_KERNELS_H
#define MEMBLOCK_IMAGING_SETOPS_KERNELS_H

#include <memblock/base/multiversion.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

/// Set operations on lists of pixel numbers.
///
/// Which parts of two lists go into the result is told by two template arguments: `common` for
/// numbers that both have, `single` for those that only one has.
namespace NKelmic::setops {

// ---- Whether lists increase, each number above the one before it

using Sixteen [[gnu::vector_size(64)]] = int;

/// Numbers from those that are read to those that are fetched: vector loads alone do not make the
/// processor foresee what comes.
constexpr unsigned int ahead = 512;

/// For lists of 17 numbers and more.
MEMBLOCK_MULTIVERSION inline bool IncreasesLong(int const* list, std::ptrdiff_t n)
{
    constexpr std::ptrdiff_t step = 16;
    Sixteen falls{}, here, before;
    for (std::ptrdiff_t i = 1;; i = std::min(i + step, n - step)) { // the last steps may overlap
        __builtin_prefetch(list + i + ahead);
        std::memcpy(&here, list + i, sizeof here);
        std::memcpy(&before, list + i - 1, sizeof before);
        falls |= here <= before;
        if (i == n - step)
            break;
    }
    int any = 0;
    for (int lane = 0; lane < step; ++lane)
        any |= falls[lane];
    return any == 0;
}

inline bool Increases(int const* list, std::ptrdiff_t n)
{
    constexpr std::ptrdiff_t short_list = 32; // not worth a call
    if (n > short_list)
        return IncreasesLong(list, n);
    for (std::ptrdiff_t i = 1; i < n; ++i)
        if (list[i] <= list[i - 1])
            return false;
    return true;
}

// ---- One pair of lists

/// Combine two increasing lists. Objects are drawn in rows, so what two of them have in common are
/// runs of successive numbers: these are gone through some numbers at a time.
template <bool common, bool single>
MEMBLOCK_INLINE_LOOP int* Merge(int const* a, int const* a_end, int const* b, int const* b_end,
                                int* out)
{
    constexpr int step = 8;
    while (a != a_end && b != b_end) {
        int x = *a, y = *b;
        if (x < y) {
            do {
                if constexpr (single)
                    *out++ = x;
                ++a;
            } while (a != a_end && (x = *a) < y);
        } else if (y < x) {
            do {
                if constexpr (single)
                    *out++ = y;
                ++b;
            } while (b != b_end && (y = *b) < x);
        } else if (a_end - a >= step && b_end - b >= step && a[step - 1] == b[step - 1] &&
                   static_cast<unsigned int>(a[step - 1]) - static_cast<unsigned int>(x) ==
                       step - 1) { // eight numbers that increase by seven: a run
            if constexpr (common)
                out = std::copy_n(a, step, out);
            a += step;
            b += step;
        } else {
            do {
                if constexpr (common)
                    *out++ = *a;
                ++a;
                ++b;
            } while (a != a_end && b != b_end && *a == *b);
        }
    }
    if constexpr (single)
        out = std::copy(b, b_end, std::copy(a, a_end, out));
    return out;
}

// ---- Many pairs of short lists

/// The lists of one operand: that of object k begins at start[k] and ends ahead of end[k].
struct Lists {
    int const* numbers;
    unsigned int const *start, *end;
    unsigned int items; ///< of `numbers`; limits may lie beyond
};

/// What is written object by object.
struct Result {
    int *begin, *next, *end; ///< the room, and where in it the next object goes
    unsigned int* limits;    ///< limits[k]: where object k begins
    unsigned int objects;    ///< so many are done

    /// End the next object ahead of `to`.
    void Close(int* to)
    {
        next = to;
        limits[++objects] = static_cast<unsigned int>(to - begin);
    }
};

constexpr unsigned int few = 16; ///< numbers of a pair of short lists

#if defined(__x86_64__)
#define MEMBLOCK_512 [[gnu::target("avx512f,bmi2,popcnt")]]

constexpr Sixteen lane{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

/// Put the lower of each lane and its partner into the one that comes first.
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP Sixteen Exchange(Sixteen v, Sixteen partner)
{
    Sixteen const w = __builtin_shuffle(v, partner);
    return partner > lane ? (v < w ? v : w) : (v < w ? w : v);
}

/// Sort lanes that rise and then fall.
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP Sixteen Sort(Sixteen v)
{
    for (int distance : {8, 4, 2, 1})
        v = Exchange(v, lane ^ distance);
    return v;
}

/// Bit i tells whether lane i + 1 equals lane i, or is below it. Bit 15 tells nothing.
template <bool or_below>
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP unsigned int FollowedByEqual(Sixteen v)
{
    auto const next = reinterpret_cast<__m512i>(__builtin_shuffle(v, (lane + 1) & 15));
    auto const here = reinterpret_cast<__m512i>(v);
    if constexpr (or_below)
        return _mm512_cmple_epi32_mask(next, here);
    else
        return _mm512_cmpeq_epi32_mask(next, here);
}

/// Combine the next objects, up to `count`, in one vector register each. Ends at the first pair
/// that does not increase, or has more than sixteen numbers, or that finds less room than that.
///
/// The second list goes backwards behind the first, so that the numbers rise and then fall, and
/// four exchanges sort them. No branch depends on numbers, so none is foreseen wrong.
template <bool common, bool single>
MEMBLOCK_512 void CombineFew(Lists const& a, Lists const& b, unsigned int count, Result& result)
{
    Result done = result;
    while (done.objects < count && done.end - done.next >= static_cast<int>(few)) {
        unsigned int const from_a = a.start[done.objects], to_a = a.end[done.objects];
        unsigned int const from_b = b.start[done.objects], to_b = b.end[done.objects];
        unsigned long const na = static_cast<unsigned long>(to_a) - from_a; // huge if negative
        unsigned long const nb = static_cast<unsigned long>(to_b) - from_b;
        if (na > few || nb > few - na || to_a > a.items || to_b > b.items)
            break;
        __builtin_prefetch(a.numbers + from_a + ahead);
        __builtin_prefetch(b.numbers + from_b + ahead);

        unsigned int const in_a = (1u << na) - 1, in_b = (1u << nb) - 1,
                           all = (1u << (na + nb)) - 1;
        __m512i const highest = _mm512_set1_epi32(0x7FFFFFFF); // for the lanes between
        __m512i const x =
            _mm512_mask_loadu_epi32(highest, static_cast<__mmask16>(in_a), a.numbers + from_a);
        __m512i const y =
            _mm512_maskz_loadu_epi32(static_cast<__mmask16>(in_b), b.numbers + from_b);
        if (((FollowedByEqual<true>(reinterpret_cast<Sixteen>(x)) & in_a >> 1) |
             (FollowedByEqual<true>(reinterpret_cast<Sixteen>(y)) & in_b >> 1)) != 0)
            break;
        __m512i const both =
            _mm512_mask_permutexvar_epi32(x, static_cast<__mmask16>(0xFFFFu << (few - nb)),
                                          reinterpret_cast<__m512i>(15 - lane), y);
        Sixteen const sorted = Sort(reinterpret_cast<Sixteen>(both));
        unsigned int const twice = FollowedByEqual<false>(sorted) & all >> 1;
        unsigned int const kept = !single  ? twice
                                  : common ? all & ~(twice << 1)
                                           : all & ~(twice | twice << 1);
        _mm512_storeu_si512(done.next,
                            _mm512_maskz_compress_epi32(static_cast<__mmask16>(kept),
                                                        reinterpret_cast<__m512i>(sorted)));
        done.Close(done.next + __builtin_popcount(kept));
    }
    result = done;
}

inline bool HasFew()
{
    static bool const has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("bmi2");
    return has;
}
#else
template <bool common, bool single>
void CombineFew(Lists const&, Lists const&, unsigned int, Result&)
{
}
constexpr bool HasFew()
{
    return false;
}
#endif

} // namespace NKelmic::setops

#endif // MEMBLOCK_IMAGING_SETOPS_KERNELS_H
