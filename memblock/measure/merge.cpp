#include <memblock/measure/measurerstate_internal.h>

#include <algorithm>

namespace NKelmic::measuring {
namespace {

/// A run of the first row of a part, and the open object that it belongs to.
struct TopRun {
    std::uint32_t x0, x1, object;
};

std::vector<TopRun> TopRuns(std::vector<OpenObject> const& open, std::int64_t row)
{
    std::vector<TopRun> top;
    for (std::uint32_t k = 0; k < open.size(); ++k)
        if (open[k].from_above)
            for (Piece const& piece : open[k].pieces)
                for (Run const& run : piece.runs)
                    if (run.row == row)
                        top.push_back({run.x0, run.x1, k});
    std::ranges::sort(top, {}, &TopRun::x0);
    return top;
}

void Absorb(OpenObject& to, OpenObject& from)
{
    std::ranges::move(from.pieces, std::back_inserter(to.pieces));
    to.from_above |= from.from_above;
    from = {};
}

} // namespace

/// Join the objects on both sides of the cut; returns for each open object the one that has taken
/// it over, which may be itself.
std::vector<std::uint32_t> MeasurerState::JoinAtCut(std::span<std::uint32_t const> upper_border,
                                                    std::span<std::uint32_t const> upper_object,
                                                    std::int64_t row)
{
    std::vector<TopRun> const top = TopRuns(open, row);
    std::vector<std::uint32_t> columns;
    for (TopRun const& run : top)
        columns.insert(columns.end(), {run.x0, run.x1});
    // The nodes are the open objects, then the runs above the cut, then those below it.
    std::uint32_t const objects = static_cast<std::uint32_t>(open.size());
    NodeRow const above{upper_border.data(), static_cast<std::uint32_t>(upper_object.size()),
                        objects};
    NodeRow const here{columns.data(), static_cast<std::uint32_t>(top.size()),
                       objects + above.count};
    Forest forest;
    forest.Reset(std::size_t{objects} + above.count + here.count);
    for (std::uint32_t i = 0; i < above.count; ++i)
        forest.Join(upper_object[i], above.first_node + i);
    for (std::uint32_t i = 0; i < here.count; ++i)
        forest.Join(top[i].object, here.first_node + i);
    ConnectRows(above, here, plan.setup.segmentation.neighbours == Neighbours::corners ? 1 : 0,
                forest);
    std::vector<std::uint32_t> taker(objects);
    for (std::uint32_t k = 0; k < objects; ++k)
        taker[k] = forest.Root(k);
    return taker;
}

std::vector<std::uint32_t> MeasurerState::JoinLabels() const
{
    std::vector<std::uint32_t> taker(open.size());
    LabelNumbers numbers;
    std::vector<std::uint32_t> first;
    for (std::uint32_t k = 0; k < open.size(); ++k) {
        std::uint32_t const n = numbers.Of(open[k].label);
        if (n == first.size())
            first.push_back(k);
        taker[k] = first[n];
    }
    return taker;
}

void MeasurerState::Merge(MeasurerState& below)
{
    std::uint32_t const mine = static_cast<std::uint32_t>(open.size());
    std::int64_t const cut = below.first_row;
    std::ranges::move(below.open, std::back_inserter(open));
    std::vector<std::uint32_t> upper_border = std::move(border),
                               upper_object = std::move(border_object);
    border = std::move(below.border);
    border_object = std::move(below.border_object);
    for (std::uint32_t& object : border_object)
        object += mine;
    rows.Append(below.rows);
    auto const taker = plan.ByLabels() ? JoinLabels() : JoinAtCut(upper_border, upper_object, cut);
    for (std::uint32_t k = mine; k < open.size(); ++k)
        open[k].from_above = false; // that was the cut
    for (std::uint32_t k = 0; k < open.size(); ++k)
        if (taker[k] != k)
            Absorb(open[taker[k]], open[k]);
    for (std::uint32_t& object : border_object)
        object = taker[object];
    end_row = below.end_row;
    below.open.clear();
    below.rows = {};
    below.border.clear();
    below.border_object.clear();
    below.end_row = below.first_row;
    CompleteEnded();
}

void MeasurerState::CompleteEnded()
{
    bool const whole = first_row == 0 && end_row == plan.frame.height;
    std::vector<char> goes_on(open.size(), plan.ByLabels() && !whole);
    for (std::uint32_t const object : border_object)
        goes_on[object] = true;
    for (std::uint32_t k = 0; k < open.size(); ++k) {
        OpenObject& object = open[k];
        if (object.pieces.empty() || goes_on[k] || object.from_above)
            continue;
        Complete(object);
        object = {};
    }
    DropClosed();
}

} // namespace NKelmic::measuring
