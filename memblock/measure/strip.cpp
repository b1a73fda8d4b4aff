#include <memblock/measure/measurerstate_internal.h>

#include <algorithm>
#include <cstring>

namespace NKelmic::measuring {
namespace {

constexpr std::size_t batch = 256; // objects that are measured together: their facts stay in cache

/// Components with all their runs, in the order of their numbers.
struct Grouping {
    Buffer<std::uint32_t> component; ///< of each node of the strip
    Buffer<std::uint32_t> limits;    ///< of the nodes of each component in `nodes`
    Buffer<std::uint32_t> nodes;

    std::uint32_t Count() const { return static_cast<std::uint32_t>(limits.size()) - 1; }

    /// Count, add up, place: the nodes of a component stay in ascending order.
    void Sort(std::uint32_t count)
    {
        limits.assign(count + 2UL, 0);
        for (std::uint32_t const c : component)
            ++limits[c + 2UL];
        for (std::size_t c = 2; c < limits.size(); ++c)
            limits[c] += limits[c - 1];
        nodes.resize(component.size());
        for (std::uint32_t i = 0; i < component.size(); ++i)
            nodes[limits[component[i] + 1UL]++] = i;
        limits.resize(count + 1UL);
    }
};

/// One strip on its way into the state of a measurer.
class StripWork {
public:
    StripWork(MeasurerState& state, std::span<Plane const> planes)
        : state_(state), plan_(state.plan), planes_(planes)
    {
    }

    void Take(std::int64_t rows, void const* objects)
    {
        strip_.first_row = state_.end_row;
        strip_.rows = rows;
        Cut(plan_.setup.type, plan_.setup.segmentation, plan_.setup.width, objects, strip_);
        if (plan_.ByLabels())
            GroupLabels();
        else
            GroupComponents();
        MarkOpen();
        MeasureComplete();
        KeepOpen();
        state_.end_row += rows;
        if (plan_.ByLabels() && state_.IsLast(state_.end_row - 1))
            state_.CompleteEnded(); // those that have no pixel in the last strip, too
    }

private:
    std::uint32_t BorderCount() const
    {
        return static_cast<std::uint32_t>(state_.border_object.size());
    }

    /// The nodes are the runs of the row before the strip, then those of the strip.
    void GroupComponents()
    {
        std::uint32_t const offset = BorderCount();
        Forest forest;
        forest.Reset(std::size_t{offset} + strip_.Nodes());
        JoinBorder(forest);
        std::uint32_t const reach =
            plan_.setup.segmentation.neighbours == Neighbours::corners ? 1 : 0;
        NodeRow above{state_.border.data(), offset, 0};
        for (std::int64_t r = 0; r < strip_.rows; ++r) {
            NodeRow const here = strip_.Row(r, offset);
            ConnectRows(above, here, reach, forest);
            above = here;
        }
        std::uint32_t const count = forest.Number();
        auto const components = forest.Components();
        group_.component.clear();
        group_.component.Append(components.data() + offset, components.size() - offset);
        group_.Sort(count);
        open_of_.assign(count, none);
        for (std::uint32_t i = 0; i < offset; ++i)
            Adopt(components[i], state_.border_object[i]);
    }
    /// Runs of one open object are one component.
    void JoinBorder(Forest& forest) const
    {
        std::vector<std::uint32_t> head(state_.open.size(), none);
        for (std::uint32_t i = 0; i < BorderCount(); ++i) {
            std::uint32_t& first = head[state_.border_object[i]];
            if (first == none)
                first = i;
            else
                forest.Join(first, i);
        }
    }
    /// An open object goes on in a component; if another does so, too, they are one.
    void Adopt(std::uint32_t component, std::uint32_t object)
    {
        std::uint32_t const known = open_of_[component];
        if (known == none) {
            open_of_[component] = object;
        } else if (known != object) {
            OpenObject &to = state_.open[known], &from = state_.open[object];
            std::ranges::move(from.pieces, std::back_inserter(to.pieces));
            to.from_above |= from.from_above;
            from = {};
        }
    }

    void GroupLabels()
    {
        LabelNumbers numbers;
        group_.component.resize(strip_.Nodes());
        for (std::uint32_t i = 0; i < strip_.Nodes(); ++i) {
            group_.component[i] = numbers.Of(strip_.labels[i]);
            if (numbers.Count() > labels_.size())
                labels_.push_back(strip_.labels[i]);
        }
        group_.Sort(numbers.Count());
        open_of_.assign(numbers.Count(), none);
        for (std::uint32_t k = 0; k < state_.open.size(); ++k)
            if (std::uint32_t const c = numbers.Find(state_.open[k].label); c != none)
                open_of_[c] = k;
    }

    /// Which components pixels may still be added to, from below or from above.
    void MarkOpen()
    {
        bool const whole =
            state_.first_row == 0 && state_.IsLast(strip_.first_row + strip_.rows - 1);
        to_below_.assign(group_.Count(), plan_.ByLabels() && !whole);
        from_above_.assign(group_.Count(), false);
        if (plan_.ByLabels())
            return;
        auto const mark = [&](std::int64_t r, Buffer<char>& marks) {
            for (std::uint32_t i = strip_.row_nodes[r]; i < strip_.row_nodes[r + 1]; ++i)
                marks[group_.component[i]] = true;
        };
        if (!state_.IsLast(strip_.first_row + strip_.rows - 1))
            mark(strip_.rows - 1, to_below_);
        if (strip_.first_row == state_.first_row && state_.first_row > 0)
            mark(0, from_above_);
    }
    bool IsInside(std::uint32_t c) const
    {
        return open_of_[c] == none && !to_below_[c] && !from_above_[c];
    }

    /// Most objects: they begin and end in the strip, and are measured where they are.
    void MeasureComplete()
    {
        RunList list;
        std::vector<std::uint64_t> labels;
        auto const flush = [&] {
            state_.maker.Make(plan_, list, planes_, labels, state_.rows);
            list.Clear();
            labels.clear();
        };
        SetRows();
        for (std::uint32_t c = 0; c < group_.Count(); ++c) {
            if (!IsInside(c))
                continue;
            AppendRuns(c, list.runs);
            list.EndObject();
            if (plan_.ByLabels())
                labels.push_back(labels_[c]);
            if (list.Count() == batch)
                flush();
        }
        if (list.Count() > 0)
            flush();
    }
    /// The row of each node: found by one pass, as the nodes of a component are met in any order.
    void SetRows()
    {
        row_of_.resize(strip_.Nodes());
        for (std::int64_t r = 0; r < strip_.rows; ++r)
            std::fill(row_of_.begin() + strip_.row_nodes[r],
                      row_of_.begin() + strip_.row_nodes[r + 1], static_cast<std::uint32_t>(r));
    }
    void AppendRuns(std::uint32_t c, Buffer<Run>& runs) const
    {
        for (std::uint32_t i = group_.limits[c]; i < group_.limits[c + 1]; ++i) {
            std::uint32_t const node = group_.nodes[i], x0 = strip_.columns[2UL * node];
            std::uint64_t const r = row_of_[node];
            runs.push_back({strip_.first_row + static_cast<std::int64_t>(r), x0,
                            strip_.columns[2UL * node + 1], r * plan_.setup.width + x0});
        }
    }

    /// The others get what they have in this strip as one piece; those that have ended are
    /// measured.
    void KeepOpen()
    {
        for (std::uint32_t c = 0; c < group_.Count(); ++c) {
            if (IsInside(c))
                continue;
            if (open_of_[c] == none) {
                open_of_[c] = static_cast<std::uint32_t>(state_.open.size());
                state_.open.emplace_back().label = plan_.ByLabels() ? labels_[c] : 0;
            }
            OpenObject& object = state_.open[open_of_[c]];
            object.from_above |= from_above_[c] != 0;
            if (group_.limits[c] != group_.limits[c + 1])
                object.pieces.push_back(PieceOf(c));
            if (!to_below_[c] && !object.from_above) {
                state_.Complete(object);
                object = {};
            }
        }
        if (!plan_.ByLabels())
            KeepBorder();
        state_.DropClosed();
    }
    Piece PieceOf(std::uint32_t c) const
    {
        Piece piece;
        AppendRuns(c, piece.runs);
        for (Run const& run : piece.runs)
            piece.pixels += run.Length();
        piece.values.resize(piece.pixels * plan_.BytesOfPixel());
        unsigned char* out = piece.values.data();
        for (std::size_t p = 0; p < planes_.size(); ++p) {
            std::size_t const size = plan_.PlaneSize(p);
            auto const* const from = static_cast<unsigned char const*>(planes_[p].values);
            for (Run const& run : piece.runs) {
                std::memcpy(out, from + run.at * size, run.Length() * size);
                out += run.Length() * size;
            }
        }
        std::uint64_t at = 0;
        for (Run& run : piece.runs) {
            run.at = at;
            at += run.Length();
        }
        return piece;
    }
    void KeepBorder()
    {
        state_.border.clear();
        state_.border_object.clear();
        std::int64_t const last = strip_.rows - 1;
        if (state_.IsLast(strip_.first_row + last))
            return;
        for (std::uint32_t i = strip_.row_nodes[last]; i < strip_.row_nodes[last + 1]; ++i) {
            state_.border.insert(state_.border.end(),
                                 {strip_.columns[2UL * i], strip_.columns[2UL * i + 1]});
            state_.border_object.push_back(open_of_[group_.component[i]]);
        }
    }

    MeasurerState& state_;
    Plan const& plan_;
    std::span<Plane const> planes_;
    CutStrip strip_;
    Grouping group_;
    std::vector<std::uint64_t> labels_; // of each component of a picture of labels
    Buffer<std::uint32_t> open_of_;     // the open object that each component goes on with
    Buffer<char> to_below_, from_above_;
    Buffer<std::uint32_t> row_of_; // of each node, from the strip's first
};

} // namespace

void MeasurerState::Feed(std::int64_t count, void const* objects, std::span<Plane const> planes)
{
    if (count > 0)
        StripWork(*this, planes).Take(count, objects);
}

void MeasurerState::DropClosed()
{
    std::vector<std::uint32_t> place(open.size(), none);
    std::uint32_t kept = 0;
    for (std::uint32_t k = 0; k < open.size(); ++k) {
        if (open[k].pieces.empty())
            continue;
        place[k] = kept;
        if (k != kept)
            open[kept] = std::move(open[k]);
        ++kept;
    }
    open.resize(kept);
    for (std::uint32_t& object : border_object)
        object = place[object];
}

Piece MeasurerState::Gather(OpenObject const& object) const
{
    Piece whole;
    for (Piece const& piece : object.pieces) {
        for (Run run : piece.runs) {
            run.at += whole.pixels;
            whole.runs.push_back(run);
        }
        whole.pixels += piece.pixels;
    }
    for (std::size_t p = 0, ahead = 0; p < plan.setup.planes.size(); ++p) {
        std::size_t const size = plan.PlaneSize(p);
        for (Piece const& piece : object.pieces)
            whole.values.Append(piece.values.data() + ahead * piece.pixels, size * piece.pixels);
        ahead += size;
    }
    // Parts of an object that met only now were kept one behind the other.
    if (!std::ranges::is_sorted(whole.runs, IsBefore))
        std::ranges::sort(whole.runs, IsBefore);
    return whole;
}

void MeasurerState::Complete(OpenObject const& object)
{
    Piece whole = Gather(object);
    std::vector<Plane> planes;
    unsigned char const* values = whole.values.data();
    for (std::size_t p = 0; p < plan.setup.planes.size(); ++p) {
        planes.push_back({plan.setup.planes[p].type, values});
        values += whole.pixels * plan.PlaneSize(p);
    }
    RunList list;
    list.runs = std::move(whole.runs);
    list.EndObject();
    std::uint64_t const label[] = {object.label};
    maker.Make(plan, list, planes, std::span(label, plan.ByLabels() ? 1 : 0), rows);
}

} // namespace NKelmic::measuring
