#ifndef MEMBLOCK_TESTS_MEASURE_PICTURES_H
#define MEMBLOCK_TESTS_MEASURE_PICTURES_H

#include <measure/model.h>
#include <memblock/collections/table.h>
#include <memblock/imaging/image.h>

#include <random>

namespace NKelmic {

/// A picture of random blobs: noise, smoothed a few times, of values from 0 to 200.
inline model::Picture RandomPicture(std::mt19937& dice)
{
    model::Picture p{1 + static_cast<long>(dice() % 90), 1 + static_cast<long>(dice() % 60), {}};
    for (long i = 0; i < p.width * p.height; ++i)
        p.values.push_back(dice() % 201);
    for (unsigned round = dice() % 4; round > 0; --round) {
        std::vector<double> const before = p.values;
        for (long y = 0; y < p.height; ++y)
            for (long x = 0; x < p.width; ++x) {
                double sum = 0, n = 0;
                for (long dy = -1; dy <= 1; ++dy)
                    for (long dx = -1; dx <= 1; ++dx)
                        if (p.Has({y + dy, x + dx})) {
                            sum += before[static_cast<std::size_t>((y + dy) * p.width + x + dx)];
                            ++n;
                        }
                p.values[static_cast<std::size_t>(y * p.width + x)] = std::floor(sum / n);
            }
    }
    return p;
}

template <class T>
DerivedPointer<Image> ImageOf(model::Picture const& p)
{
    auto const image = Image::Create(static_cast<unsigned>(p.width),
                                     static_cast<unsigned>(p.height), type_of<T>::value, 1.0);
    T* const out = image->template TypedPointer<T>();
    std::ranges::transform(p.values, out, [](double v) { return static_cast<T>(v); });
    return image;
}

/// Everything that a table holds, to the bit.
inline std::string BytesOf(Table const& table)
{
    std::string bytes;
    for (int c = 0; c < table.ColumnCount(); ++c) {
        Vector const& column = *table.Column(c);
        bytes += table.ColumnName(c).c_str();
        bytes.append(static_cast<char const*>(column.Pointer()),
                     column.Length() * column.ElemSize());
    }
    return bytes;
}

inline double CellOf(Table const& table, std::string const& column, int row)
{
    auto const values = table.Column(safestring(column.c_str()));
    return values ? cref(values).Elem(static_cast<unsigned>(row))
                  : std::numeric_limits<double>::infinity();
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_MEASURE_PICTURES_H
