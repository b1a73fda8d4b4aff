#include <measure/measures.h>

#include <memblock/statistic/statistic.h>
#include <memblock/vector/summary.h>

namespace measure {
namespace {

using namespace NKelmic;

void Release(void* bytes)
{
    delete[] static_cast<unsigned char*>(bytes);
}

DerivedPointer<Vector> Wrap(Page& page, unsigned long length, DataType type, double factor)
{
    return Vector::Create(length, type, page.bytes.release(), Release, 0, factor);
}

/// Copy out the three channels of `samples`, and their average.
template <class T>
void AddChannels(std::vector<Block>& blocks, T const* samples, unsigned long pixels, double factor)
{
    char const* const names[] = {"red", "green", "blue", "average"};
    T* channel[4];
    for (int c = 0; c < 4; ++c) {
        auto vector = Vector::Create(pixels, type_of<T>::value, false, 0, factor);
        channel[c] = static_cast<T*>(vector->Pointer());
        blocks.push_back({names[c], vector});
    }
    for (unsigned long i = 0; i < pixels; ++i, samples += 3) {
        for (int c = 0; c < 3; ++c)
            channel[c][i] = samples[c];
        channel[3][i] = static_cast<T>((samples[0] + samples[1] + samples[2] + 2) / 3);
    }
    for (Block const& block : blocks)
        block.vector->ContentHasBeenChanged();
}

} // namespace

std::vector<Block> BlocksOf(Page& page, double factor)
{
    unsigned long const pixels = page.Pixels();
    std::vector<Block> blocks;
    if (page.samples == 1) {
        blocks.push_back({"grey", Wrap(page, pixels, page.type, factor)});
    } else if (page.type == DataTypeBase::Byte) {
        auto const rgb = Wrap(page, pixels, DataTypeBase::Triple, factor);
        blocks.push_back({"rgb", rgb, false});
        AddChannels(blocks, cref(rgb).TriplePointer()->b, pixels, factor);
    } else if (page.type == DataTypeBase::UnsignedShort) {
        auto const rgb = Wrap(page, pixels * 3, page.type, factor);
        blocks.push_back({"rgb", rgb, false});
        AddChannels(blocks, cref(rgb).UnsignedShortPointer(), pixels, factor);
    } else {
        throw ReadError("is RGB of an unsupported kind");
    }
    return blocks;
}

Measures Measure(DerivedPointer<Vector> const& vector, Policies const& policies)
{
    auto const value = [&](char const* word, double parameter = 0) {
        return Statistic(vector, word, policies.nan, policies.inf, parameter).Comp(0, -1);
    };
    Measures result{};
    Vector const& data = cref(vector); // reading through the pointer would detach shared data
    result.minimum = {data.SecondaryDouble(key_min, throw_always),
                      data.SecondaryInt(key_minat, throw_always)};
    result.maximum = {data.SecondaryDouble(key_max, throw_always),
                      data.SecondaryInt(key_maxat, throw_always)};
    result.mean = value("mean");
    result.stddev = value("stddev");
    result.sum = value("sum");
    result.median = value("median");
    result.lower_quartile = value("quantile", 0.25);
    result.upper_quartile = value("quantile", 0.75);
    return result;
}

} // namespace measure
