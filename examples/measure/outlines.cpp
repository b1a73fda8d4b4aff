#include <measure/outlines.h>

#include <algorithm>
#include <array>

namespace measure {
namespace {

/// Asks for the labels of pixels that may be outside of the picture.
class LabelView {
public:
    explicit LabelView(LabelRuns const& objects)
        : width_(objects.width), height_(objects.height), labels_(DrawLabels(objects))
    {
    }
    std::uint32_t At(std::int64_t x, std::int64_t y) const
    {
        bool const inside = x >= 0 && y >= 0 && x < width_ && y < height_;
        return inside ? labels_[Index(x, y)] : 0;
    }
    std::size_t Index(std::int64_t x, std::int64_t y) const
    {
        return static_cast<std::size_t>(y * width_ + x);
    }

private:
    std::int64_t width_, height_;
    std::vector<std::uint32_t> labels_;
};

/// Walks around objects. Directions are 0 right, 1 down, 2 left, 3 up.
class Tracer {
public:
    explicit Tracer(LabelRuns const& objects)
        : view_(objects), seen_(std::size_t{objects.width} * objects.height)
    {
    }

    /// Whether the upper edge of a pixel is part of an outline that was not walked yet.
    bool IsNew(std::int64_t x, std::int64_t y) const
    {
        return !seen_[view_.Index(x, y)] && view_.At(x, y - 1) != view_.At(x, y);
    }

    Loop Walk(std::int64_t x, std::int64_t y)
    {
        Loop loop{view_.At(x, y), {}};
        std::int64_t const x0 = x, y0 = y;
        int direction = 0;
        do {
            if (direction == 0)
                seen_[view_.Index(x, y)] = true;
            x += step_x[direction];
            y += step_y[direction];
            int const turn = Turn(loop.label, x, y, direction);
            if (turn != 0) {
                loop.corners.push_back(static_cast<std::int32_t>(x));
                loop.corners.push_back(static_cast<std::int32_t>(y));
            }
            direction = (direction + turn + 4) % 4;
        } while (x != x0 || y != y0 || direction != 0);
        return loop;
    }

private:
    static constexpr std::array step_x{1, 0, -1, 0}, step_y{0, 1, 0, -1};
    /// From a corner to the pixel ahead on the right hand side, and on the left.
    static constexpr std::array right_x{0, -1, -1, 0}, right_y{0, 0, -1, -1};
    static constexpr std::array left_x{0, 0, -1, -1}, left_y{-1, 0, 0, -1};

    int Turn(std::uint32_t label, std::int64_t x, std::int64_t y, int d) const
    {
        if (view_.At(x + right_x[d], y + right_y[d]) != label)
            return 1;
        return view_.At(x + left_x[d], y + left_y[d]) == label ? -1 : 0;
    }

    LabelView view_;
    std::vector<bool> seen_; // by pixel: its upper edge was walked
};

} // namespace

std::vector<std::uint32_t> DrawLabels(LabelRuns const& objects)
{
    std::vector<std::uint32_t> labels(std::size_t{objects.width} * objects.height);
    for (LabelRun const& run : objects.runs) {
        auto const row = labels.begin() + static_cast<std::ptrdiff_t>(run.y) * objects.width;
        std::fill(row + run.x0, row + run.x1, run.label);
    }
    return labels;
}

std::vector<std::uint32_t> DrawOutlines(LabelRuns const& objects)
{
    LabelView const view(objects);
    std::vector<std::uint32_t> outlines = DrawLabels(objects);
    for (LabelRun const& run : objects.runs)
        for (std::int64_t x = run.x0, y = run.y; x < run.x1; ++x)
            if (view.At(x - 1, y) == run.label && view.At(x + 1, y) == run.label &&
                view.At(x, y - 1) == run.label && view.At(x, y + 1) == run.label)
                outlines[view.Index(x, y)] = 0;
    return outlines;
}

std::vector<Loop> TraceOutlines(LabelRuns const& objects)
{
    Tracer tracer(objects);
    std::vector<Loop> loops;
    for (LabelRun const& run : objects.runs)
        for (std::int64_t x = run.x0; x < run.x1; ++x)
            if (tracer.IsNew(x, run.y))
                loops.push_back(tracer.Walk(x, run.y));
    return loops;
}

} // namespace measure
