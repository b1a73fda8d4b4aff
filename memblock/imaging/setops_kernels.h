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
/// Two template arguments say which parts of two lists go into the result: `common` for
/// numbers that both have, `single` for those that only one has.
namespace NKelmic::setops {

using Sixteen [[gnu::vector_size(64)]] = int;
using SixteenUnsigned [[gnu::vector_size(64)]] = unsigned int;

/// Numbers from those that are read to those that are fetched: vector loads alone do not make the
/// processor foresee what comes.
constexpr unsigned int ahead = 512;

// ---- How lists go on from number to number

/// Set lanes where a number is not above the one before it; for 17 numbers and more.
MEMBLOCK_INLINE_LOOP void AddFalls(int const* list, std::ptrdiff_t n, Sixteen& falls)
{
    constexpr std::ptrdiff_t step = 16;
    Sixteen here, before;
    for (std::ptrdiff_t i = 1;; i = std::min(i + step, n - step)) { // the last steps may overlap
        __builtin_prefetch(list + i + ahead);
        std::memcpy(&here, list + i, sizeof here);
        std::memcpy(&before, list + i - 1, sizeof before);
        falls |= here <= before;
        if (i == n - step)
            break;
    }
}

MEMBLOCK_MULTIVERSION inline bool BothIncreaseLong(int const* a, std::ptrdiff_t na, int const* b,
                                                   std::ptrdiff_t nb)
{
    Sixteen falls{};
    AddFalls(a, na, falls);
    AddFalls(b, nb, falls);
    int any = 0;
    for (int k = 0; k < 16; ++k)
        any |= falls[k];
    return any == 0;
}

inline bool Increases(int const* list, std::ptrdiff_t n)
{
    for (std::ptrdiff_t i = 1; i < n; ++i)
        if (list[i] <= list[i - 1])
            return false;
    return true;
}

/// Whether in each list each number is above the one before it.
inline bool BothIncrease(int const* a, std::ptrdiff_t na, int const* b, std::ptrdiff_t nb)
{
    constexpr std::ptrdiff_t worth_a_call = 17;
    if (na >= worth_a_call && nb >= worth_a_call)
        return BothIncreaseLong(a, na, b, nb);
    return Increases(a, na) && Increases(b, nb);
}

/// Whether numbers from the middle of a list mostly are one more than the one before them.
inline bool HasLongRuns(int const* list, std::ptrdiff_t n)
{
    constexpr std::ptrdiff_t most = 64, long_run = 12; // by measurement
    std::ptrdiff_t const steps = std::min(n - 1, most);
    auto const* const number = reinterpret_cast<unsigned int const*>(list) + (n - 1 - steps) / 2;
    std::ptrdiff_t runs = 1;
    for (std::ptrdiff_t i = 0; i < steps; ++i)
        runs += number[i + 1] - number[i] != 1;
    return steps >= long_run * runs;
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
            if constexpr (common) {
                std::memcpy(out, a, step * sizeof *a); // std::copy_n would be a call
                out += step;
            }
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
    unsigned int items; ///< of `numbers`; limits may be beyond
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

// ---- Sorting networks for lists whose branches are unpredictable

constexpr unsigned int lanes = 16; ///< of a vector register; as many may be written behind a result

#if defined(__x86_64__)
#define MEMBLOCK_512 [[gnu::target("avx512f,bmi2,popcnt")]]

inline bool HasLanes()
{
    static bool const has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("bmi2");
    return has;
}

constexpr Sixteen lane{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
constexpr int highest = 0x7FFFFFFF; // fills up lanes, as it sorts behind all numbers

constexpr unsigned int First(unsigned long n)
{
    return (1u << n) - 1;
}

/// Load up to 16 numbers.
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP Sixteen Load(int const* list, unsigned long n)
{
    return reinterpret_cast<Sixteen>(_mm512_mask_loadu_epi32(
        _mm512_set1_epi32(highest), static_cast<__mmask16>(First(n)), list));
}

/// Store the lanes whose bits are set, and return where they end.
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP int* Store(Sixteen v, unsigned int which, int* out)
{
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi32(static_cast<__mmask16>(which),
                                                         reinterpret_cast<__m512i>(v)));
    return out + __builtin_popcount(which);
}

MEMBLOCK_512 MEMBLOCK_INLINE_LOOP unsigned int Equal(Sixteen v, Sixteen w)
{
    return _mm512_cmpeq_epi32_mask(reinterpret_cast<__m512i>(v), reinterpret_cast<__m512i>(w));
}

/// Bit i is set if lane i + 1 is not above lane i, for lists of n numbers.
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP unsigned int Falls(Sixteen v, unsigned long n)
{
    Sixteen const next = __builtin_shuffle(v, (lane + 1) & 15);
    return _mm512_cmple_epi32_mask(reinterpret_cast<__m512i>(next), reinterpret_cast<__m512i>(v)) &
           First(n) >> 1;
}

/// Sort lanes that rise and then fall: each is exchanged with partners that come ever nearer.
MEMBLOCK_512 MEMBLOCK_INLINE_LOOP Sixteen Sort(Sixteen v)
{
    for (int distance : {8, 4, 2, 1}) {
        Sixteen const partner = lane ^ distance, w = __builtin_shuffle(v, partner);
        v = partner > lane ? (v < w ? v : w) : (v < w ? w : v);
    }
    return v;
}

/// Writes what an operation keeps of numbers that come in ascending order, block by block.
template <bool common, bool single>
struct Sieve {
    int* out;
    unsigned long left; ///< numbers that will come; lanes behind them only fill up
    Sixteen before{};
    unsigned int waiting = 0; ///< of `before`: not known yet whether the last has an equal
    bool begun = false;

    MEMBLOCK_512 MEMBLOCK_INLINE_LOOP void Add(Sixteen v)
    {
        unsigned int const valid = First(std::min<unsigned long>(left, lanes));
        left -= std::min<unsigned long>(left, lanes);
        unsigned int const again =
            Equal(v, __builtin_shuffle(before, v, lane + 15)) & valid & (begun ? 0xFFFFu : 0xFFFEu);
        if constexpr (!single) {
            out = Store(v, again, out);
        } else if constexpr (common) {
            out = Store(v, valid & ~again, out);
        } else {
            out = Store(before, waiting & ~(again << 15), out);
            waiting = valid & ~(again | again >> 1);
        }
        before = v;
        begun = true;
    }
    MEMBLOCK_512 MEMBLOCK_INLINE_LOOP int* End()
    {
        return common ? out : Store(before, waiting, out);
    }
};

/// Combine two increasing lists by blocks of 16 numbers: a block of the one whose next number is
/// lower, with what was the higher half so far, falls into a lower half that is ready and a higher.
/// Up to 16 numbers behind the result are written.
template <bool common, bool single>
MEMBLOCK_512 int* MergeBlocks(int const* a, int const* a_end, int const* b, int const* b_end,
                              int* out)
{
    static constexpr int none = highest;
    std::ptrdiff_t n = std::min<std::ptrdiff_t>(a_end - a, lanes);
    Sieve<common, single> sieve{out, static_cast<unsigned long>((a_end - a) + (b_end - b))};
    Sixteen higher = Load(a, static_cast<unsigned long>(n));
    a += n;
    while (a != a_end || b != b_end) {
        int const next_a = *(a != a_end ? a : &none), next_b = *(b != b_end ? b : &none);
        bool const from_a = (b == b_end) | (next_a < next_b); // no branch
        int const* const from = from_a ? a : b;
        n = std::min<std::ptrdiff_t>((from_a ? a_end : b_end) - from, lanes);
        Sixteen const block =
            __builtin_shuffle(Load(from, static_cast<unsigned long>(n)), 15 - lane);
        a += from_a ? n : 0;
        b += from_a ? 0 : n;
        sieve.Add(Sort(higher < block ? higher : block));
        higher = Sort(higher < block ? block : higher);
    }
    sieve.Add(higher);
    return sieve.End();
}

/// Combine the next objects, up to `count`, in one vector register each. Ends at the first pair
/// that does not increase, or has more than 16 numbers, or that finds less room than that.
template <bool common, bool single>
MEMBLOCK_512 void CombineFew(Lists const& a, Lists const& b, unsigned int count, Result& result)
{
    Result done = result;
    while (done.objects < count && done.end - done.next >= static_cast<int>(lanes)) {
        unsigned int const from_a = a.start[done.objects], to_a = a.end[done.objects];
        unsigned int const from_b = b.start[done.objects], to_b = b.end[done.objects];
        unsigned long const na = 0UL + to_a - from_a, nb = 0UL + to_b - from_b; // huge if below 0
        if (na > lanes || nb > lanes - na || to_a > a.items || to_b > b.items)
            break;
        __builtin_prefetch(a.numbers + from_a + ahead);
        __builtin_prefetch(b.numbers + from_b + ahead);
        Sixteen const x = Load(a.numbers + from_a, na), y = Load(b.numbers + from_b, nb);
        if ((Falls(x, na) | Falls(y, nb)) != 0)
            break;
        // The second list goes backwards behind the first: the numbers rise and then fall.
        Sixteen const sorted =
            Sort(15 - lane < static_cast<int>(nb) ? __builtin_shuffle(y, 15 - lane) : x);
        unsigned int const all = First(na + nb);
        unsigned int const twice =
            Equal(sorted, __builtin_shuffle(sorted, (lane + 1) & 15)) & all >> 1;
        done.Close(Store(sorted,
                         !single  ? twice
                         : common ? all & ~(twice << 1)
                                  : all & ~(twice | twice << 1),
                         done.next));
    }
    result = done;
}
#else
constexpr bool HasLanes()
{
    return false;
}
template <bool common, bool single>
int* MergeBlocks(int const*, int const*, int const*, int const*, int* out)
{
    return out;
}
template <bool common, bool single>
void CombineFew(Lists const&, Lists const&, unsigned int, Result&)
{
}
#endif

} // namespace NKelmic::setops

#endif // MEMBLOCK_IMAGING_SETOPS_KERNELS_H
