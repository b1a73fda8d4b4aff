#ifndef MEMBLOCK_CORE_SUMMARYKEYS_H
#define MEMBLOCK_CORE_SUMMARYKEYS_H

namespace NKelmic {

/// Keys of the summary values of a vector in its cache. All are raw.
enum summary_key : int {
    key_max = 100,
    key_min = 101,
    key_mean = 102,
    key_median = 103,
    key_rough_max = 104, ///< a value at or above the maximum, as an int
    key_sum = 105,
    key_width = 106, ///< a name only: images answer it
    key_stddev = 107,
    key_histogram = 108,
    key_variance = 109,
    key_fmedian = 110, ///< the two middle elements averaged
    key_maxat = 111,   ///< index of the first maximum
    key_minat = 112,
    key_finitemin = 113,
    key_finitemax = 114,
    key_last_summary = key_finitemax
};

/// The name of a summary value in messages, nullptr for a key without one. Both kinds of median
/// have the same.
constexpr char const* SummaryKeyName(int key)
{
    switch (static_cast<summary_key>(key)) { // no default: each new key is decided here
    case key_max:
        return "max";
    case key_min:
        return "min";
    case key_mean:
        return "mean";
    case key_median:
    case key_fmedian:
        return "median";
    case key_rough_max:
        return "rough_max";
    case key_sum:
        return "sum";
    case key_width:
        return "width";
    case key_stddev:
        return "stddev";
    case key_histogram:
        return "histogram";
    case key_finitemin:
        return "finitemin";
    case key_finitemax:
        return "finitemax";
    case key_variance: // Settled: named by its number, as the places of the extremes
    case key_maxat:
    case key_minat:
        break;
    }
    return nullptr;
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_SUMMARYKEYS_H
