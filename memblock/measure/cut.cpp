#include <memblock/measure/foreground_kernels.h>
#include <memblock/measure/measurerstate_internal.h>

namespace NKelmic::measuring {
namespace {

template <class T>
void CutByRange(T const* row, std::uint32_t width, ValueRange<T> range, CutStrip& strip)
{
    std::vector<unsigned char> flags(width + pixels::block);
    for (std::int64_t r = 0; r < strip.rows; ++r, row += width) {
        std::size_t const used = strip.columns.size();
        std::uint32_t* const out = strip.columns.Extend(width + pixels::block);
        strip.columns.resize(used + (CutRow(row, width, range, flags.data(), out) - out));
        strip.row_nodes.push_back(static_cast<std::uint32_t>(strip.columns.size() / 2));
    }
}

template <class T>
std::uint64_t LabelOf(T pixel, std::uint32_t column, std::int64_t row)
{
    if constexpr (std::numeric_limits<T>::is_signed)
        if (pixel < 0)
            Raise(err_value,
                  "Labels must be whole numbers from 0 on: found %d at column %d, row %d.",
                  static_cast<long long>(pixel), column, row);
    return static_cast<std::uint64_t>(pixel);
}

template <class T>
void CutByLabels(T const* pixels, std::uint32_t width, CutStrip& strip)
{
    for (std::int64_t r = 0; r < strip.rows; ++r, pixels += width) {
        for (std::uint32_t x = 0; x < width;) {
            std::uint32_t const from = x;
            while (++x < width && pixels[x] == pixels[from]) {
            }
            if (pixels[from] == T(0))
                continue;
            strip.labels.push_back(LabelOf(pixels[from], from, strip.first_row + r));
            strip.columns.push_back(from);
            strip.columns.push_back(x);
        }
        strip.row_nodes.push_back(static_cast<std::uint32_t>(strip.labels.size()));
    }
}

} // namespace

void Cut(DataType type, Segmentation const& by, std::uint32_t width, void const* pixels,
         CutStrip& strip)
{
    bool const by_labels = by.kind == Segmentation::labels;
    strip.columns.clear();
    strip.row_nodes.assign(1, 0);
    strip.labels.clear();
    WithElemType<NumericTypes>(type, "%s", [&]<class T>(TypeTag<T>) {
        T const* const p = static_cast<T const*>(pixels);
        if (!by_labels)
            CutByRange(p, width, RangeOf<T>(by.threshold, by.kind == Segmentation::up_to), strip);
        else if constexpr (std::numeric_limits<T>::is_integer)
            CutByLabels(p, width, strip);
    });
}

} // namespace NKelmic::measuring
