#include <measure/segment.h>

#include <algorithm>
#include <boost/multiprecision/cpp_int.hpp>

namespace measure {
namespace {

/// Foreground pixels side by side in one row, and the object that they belong to.
struct Run {
    unsigned long from, to; ///< pixel indices; `to` is behind the last one
    unsigned long parent;   ///< an earlier run of the same object, or the run itself
};

unsigned long Root(std::vector<Run>& runs, unsigned long i)
{
    while (runs[i].parent != i)
        i = runs[i].parent = runs[runs[i].parent].parent; // shorten the way for the next one
    return i;
}

/// The first run of an object stays its root, so that objects are numbered by their first pixels.
void Join(std::vector<Run>& runs, unsigned long a, unsigned long b)
{
    unsigned long const x = Root(runs, a), y = Root(runs, b);
    runs[std::max(x, y)].parent = std::min(x, y);
}

void AddRunsOfRow(std::span<unsigned char const> mask, unsigned long from, unsigned long to,
                  std::vector<Run>& runs)
{
    for (unsigned long i = from; i < to;) {
        if (mask[i] == 0) {
            ++i;
            continue;
        }
        unsigned long end = i + 1;
        while (end < to && mask[end] != 0)
            ++end;
        runs.push_back({i, end, runs.size()});
        i = end;
    }
}

/// Join the runs of a row with those of the row above that touch them; both go from left to right.
void JoinRows(std::vector<Run>& runs, unsigned long above, unsigned long here, unsigned long width,
              unsigned long reach)
{
    unsigned long upper = above;
    for (unsigned long lower = here; lower < runs.size(); ++lower) {
        while (upper < here && runs[upper].to + width + reach <= runs[lower].from)
            ++upper;
        for (unsigned long i = upper; i < here && runs[i].from + width < runs[lower].to + reach;
             ++i)
            Join(runs, i, lower);
    }
}

} // namespace

unsigned OtsuThreshold(std::span<unsigned long const> histogram)
{
    using boost::multiprecision::int512_t;
    int512_t pixels = 0, sum = 0;
    for (std::size_t v = 0; v < histogram.size(); ++v) {
        pixels += histogram[v];
        sum += int512_t(histogram[v]) * v;
    }
    int512_t lower = 0, lower_sum = 0; // pixels up to the threshold, their sum
    int512_t best_numerator = -1, best_divisor = 1;
    unsigned best = 0;
    for (std::size_t v = 0; v < histogram.size(); ++v) {
        lower += histogram[v];
        lower_sum += int512_t(histogram[v]) * v;
        if (histogram[v] == 0 || lower == pixels) // no other split than the one before; no split
            continue;
        int512_t const distance = lower_sum * pixels - sum * lower;
        int512_t const numerator = distance * distance, divisor = lower * (pixels - lower);
        if (numerator * best_divisor <= best_numerator * divisor)
            continue;
        best_numerator = numerator;
        best_divisor = divisor;
        best = static_cast<unsigned>(v);
    }
    return best;
}

unsigned LabelObjects(std::span<unsigned char const> mask, unsigned long width,
                      Neighbours neighbours, std::span<unsigned> labels)
{
    unsigned long const reach = neighbours == Neighbours::corners ? 1 : 0;
    std::vector<Run> runs;
    unsigned long above = 0;
    for (unsigned long row = 0; width > 0 && row + width <= mask.size(); row += width) {
        unsigned long const here = runs.size();
        AddRunsOfRow(mask, row, row + width, runs);
        JoinRows(runs, above, here, width, reach);
        above = here;
    }
    std::ranges::fill(labels, 0u);
    unsigned count = 0;
    std::vector<unsigned> number(runs.size());
    for (unsigned long i = 0; i < runs.size(); ++i) {
        unsigned long const root = Root(runs, i);
        number[i] = root == i ? ++count : number[root];
        std::fill(labels.begin() + runs[i].from, labels.begin() + runs[i].to, number[i]);
    }
    return count;
}

} // namespace measure
