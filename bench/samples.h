#ifndef MEMBLOCK_BENCH_SAMPLES_H
#define MEMBLOCK_BENCH_SAMPLES_H

#include <memblock/vector/vector.h>

#include <algorithm>
#include <random>
#include <vector>

// The values that summary values and statistics are taken of: integers of the whole range of their
// type, floats around 0.

constexpr unsigned int length = 1 << 20;

template <class T>
std::vector<T> Samples()
{
    std::mt19937 random(3);
    std::vector<T> samples(length);
    for (T& v : samples)
        v = std::is_floating_point_v<T> ? static_cast<T>(std::normal_distribution<>(0, 50)(random))
                                        : static_cast<T>(random());
    return samples;
}

template <class T>
NKelmic::DerivedPointer<NKelmic::Vector> VectorOfSamples()
{
    using namespace NKelmic;
    auto const vector = Vector::Create(length, type_of<T>::value, true, 0, 1.0);
    std::ranges::copy(Samples<T>(), vector->template TypedPointer<T>());
    return vector;
}

#endif // MEMBLOCK_BENCH_SAMPLES_H
