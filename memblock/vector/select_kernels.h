#ifndef MEMBLOCK_VECTOR_SELECT_KERNELS_H
#define MEMBLOCK_VECTOR_SELECT_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/core/datatype.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

/// Order statistics by selection: the element that a full sort would put at a place, without one.
namespace NKelmic::select {

/// Unsigned numbers in the order of the elements: what follows counts and compares these only.
///
/// NaN comes after everything, and -0.0 before 0.0; both come back as they went in, but for the
/// payload of a NaN.
template <class T>
struct Key {
    using type = std::conditional_t<
        sizeof(T) == 1, std::uint8_t,
        std::conditional_t<sizeof(T) == 2, std::uint16_t,
                           std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>>>;
    static constexpr int bits = std::is_same_v<T, triple> ? 24 : 8 * sizeof(T);
    static constexpr type sign = static_cast<type>(type{1} << (bits - 1));

    static type Of(T v)
    {
        if constexpr (std::is_floating_point_v<T>) {
            auto const b = std::bit_cast<type>(v);
            type const ordered = b & sign ? ~b : b | sign;
            return v == v ? ordered : std::numeric_limits<type>::max();
        } else if constexpr (std::is_signed_v<T>) {
            return static_cast<type>(static_cast<type>(v) ^ sign);
        } else {
            return static_cast<type>(v);
        }
    }
    static T Back(type key)
    {
        if constexpr (std::is_floating_point_v<T>)
            return std::bit_cast<T>(static_cast<type>(key & sign ? key ^ sign : ~key));
        else if constexpr (std::is_signed_v<T>)
            return static_cast<T>(static_cast<type>(key ^ sign));
        else
            return static_cast<T>(key);
    }
};
/// Below this a plain selection beats clearing and searching a table.
constexpr std::size_t few = 10000;

/// Count elements by `width` bits of their keys, into two tables in turn: equal neighbours would
/// wait for each other's store. The sum is left in the first.
template <class X, class KeyOf>
void count_bins(X const* __restrict x, std::size_t n, int shift, std::uint32_t* __restrict even,
                std::uint32_t* __restrict odd, std::size_t bins, KeyOf key)
{
    auto const bin = [=](X v) { return static_cast<std::size_t>(key(v) >> shift) & (bins - 1); };
    std::size_t i = 0;
    for (; i + 1 < n; i += 2) {
        ++even[bin(x[i])];
        ++odd[bin(x[i + 1])];
    }
    if (i < n)
        ++even[bin(x[i])];
    for (std::size_t b = 0; b < bins; ++b)
        even[b] += odd[b];
}

/// The keys of the elements in one bin, in their order.
template <class K, class X, class KeyOf>
std::vector<K> pick_bin(X const* __restrict x, std::size_t n, int shift, std::size_t bin,
                        std::size_t bins, std::size_t count, KeyOf key)
{
    std::vector<K> picked(count + 1); // each element is written, those of other bins over again
    K* __restrict out = picked.data();
    std::size_t used = 0;
    for (std::size_t i = 0; i < n; ++i) {
        K const k = key(x[i]);
        out[used] = k;
        used += (static_cast<std::size_t>(k >> shift) & (bins - 1)) == bin;
    }
    picked.resize(count);
    return picked;
}

/// The key of rank k among elements whose keys agree above their lowest `bits` bits.
template <class K, class X, class KeyOf>
K select_key(X const* x, std::size_t n, std::size_t k, int bits, KeyOf key)
{
    if (n < few) {
        std::vector<K> keys(n);
        std::transform(x, x + n, keys.begin(), key);
        std::nth_element(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(k), keys.end());
        return keys[k];
    }
    int const width = std::min(bits, 16); // of a double: the exponent and four bits more
    int const shift = bits - width;
    std::size_t const bins = std::size_t{1} << width;
    std::vector<std::uint32_t> table(2 * bins);
    count_bins(x, n, shift, table.data(), table.data() + bins, bins, key);
    std::size_t bin = 0;
    for (; k >= table[bin]; ++bin)
        k -= table[bin];
    if (shift == 0) {
        K const above = static_cast<K>(key(x[0]) & ~static_cast<K>(bins - 1));
        return static_cast<K>(above | bin);
    }
    if (table[bin] == n)
        return select_key<K>(x, n, k, shift, key);
    std::vector<K> const picked = pick_bin<K>(x, n, shift, bin, bins, table[bin], key);
    return select_key<K>(picked.data(), picked.size(), k, shift, std::identity());
}

/// The element at place k when all are sorted; 0 <= k < n.
template <class T>
T Nth(T const* x, std::size_t n, std::size_t k)
{
    using K = typename Key<T>::type;
    auto const key = [](T v) { return Key<T>::Of(v); }; // a function pointer may stay one
    return Key<T>::Back(select_key<K>(x, n, k, Key<T>::bits, key));
}

/// The element at place k - 1, where `at` is the one at place k > 0.
template <class T>
MEMBLOCK_MULTIVERSION T Before(T const* __restrict x, std::size_t n, std::size_t k, T at)
{
    using K = typename Key<T>::type;
    constexpr std::size_t run = sizeof(K) == 1 ? 224 : 65504; // so many that a K can count
    K const limit = Key<T>::Of(at);
    K greatest = 0;
    std::size_t less = 0;
    for (std::size_t start = 0; start < n; start += run) {
        std::size_t const end = std::min(n, start + run);
        K less_here = 0;
        for (std::size_t i = start; i < end; ++i)
            less_here = static_cast<K>(less_here + (Key<T>::Of(x[i]) < limit));
        for (std::size_t i = start; i < end; ++i) {
            K const key = Key<T>::Of(x[i]);
            K const mask =
                static_cast<K>(-static_cast<K>(key < limit)); // a choice would not vectorize
            greatest = std::max(greatest, static_cast<K>(key & mask));
        }
        less += less_here;
    }
    return less < k ? at : Key<T>::Back(greatest);
}

} // namespace NKelmic::select

#endif // MEMBLOCK_VECTOR_SELECT_KERNELS_H
