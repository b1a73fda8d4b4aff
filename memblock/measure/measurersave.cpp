#include <memblock/measure/measurer.h>

#include <memblock/measure/measurerstate_internal.h>

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace NKelmic {

using namespace measuring;

/// The form in which the state of a measurer is sent. All numbers are little-endian:
///
///     "MBMEASUR", version as 4 bytes, length of what follows as 8, its CRC-32 as 4
///     the setup, the rows of the part
///     the number of complete objects, their keys in ascending order, their cells
///     for each open object, in the order of their first runs: label, from_above, number of runs,
///     each as row, x0, x1, then the intensities of its pixels, plane after plane
///     the number of runs in the last row, each as x0, x1, number of its open object
namespace {

static_assert(std::endian::native == std::endian::little, "cells and pixels are sent as they are");

constexpr char magic[8] = {'M', 'B', 'M', 'E', 'A', 'S', 'U', 'R'};
constexpr std::uint32_t version = 1;
constexpr std::size_t head_size = sizeof magic + 4 + 8 + 4;

class Writer {
public:
    template <class T>
    requires std::is_trivially_copyable_v<T>
    void Put(T const& value) { PutBytes(&value, sizeof value); }
    void Put(safestring const& text)
    {
        Put(static_cast<std::uint64_t>(text.size()));
        PutBytes(text.data(), text.size());
    }
    template <class T>
    void PutAll(Buffer<T> const& values)
    {
        PutBytes(values.data(), values.size() * sizeof(T));
    }
    safestring Take() { return std::move(bytes_); }

private:
    void PutBytes(void const* p, std::size_t n) { bytes_.append(static_cast<char const*>(p), n); }

    safestring bytes_;
};

[[noreturn]] void Damaged(char const* what)
{
    Raise(err_value, "This is no state of a measurer: %s", what);
}

/// Reads what a `Writer` wrote; nothing is believed before it is checked.
class Reader {
public:
    Reader(char const* bytes, std::size_t size) : at_(bytes), left_(size) {}

    template <class T>
    requires std::is_trivially_copyable_v<T> T Get()
    {
        T value;
        std::memcpy(&value, Skip(sizeof value), sizeof value);
        return value;
    }
    bool GetBool() { return Get<std::uint8_t>() != 0; }
    safestring GetText()
    {
        std::size_t const size = Count(1);
        return safestring(Skip(size), size);
    }
    /// A number of things that take at least so many bytes each.
    std::size_t Count(std::size_t bytes_each)
    {
        std::uint64_t const count = Get<std::uint64_t>();
        if (count > left_ / std::max<std::size_t>(1, bytes_each))
            Damaged("a number is greater than what follows.");
        return static_cast<std::size_t>(count);
    }
    template <class T>
    Buffer<T> GetAll(std::size_t count)
    {
        if (count > left_ / sizeof(T))
            Damaged("it ends too early.");
        Buffer<T> values;
        values.resize(count);
        if (count > 0)
            std::memcpy(values.data(), Skip(count * sizeof(T)), count * sizeof(T));
        return values;
    }
    void ExpectEnd() const
    {
        if (left_ != 0)
            Damaged("something follows its end.");
    }

private:
    char const* Skip(std::size_t n)
    {
        if (n > left_)
            Damaged("it ends too early.");
        char const* const p = at_;
        at_ += n;
        left_ -= n;
        return p;
    }

    char const* at_;
    std::size_t left_;
};

void PutSetup(Writer& out, MeasureSetup const& s)
{
    out.Put(s.width);
    out.Put(s.height);
    out.Put(static_cast<std::int32_t>(s.type));
    out.Put(static_cast<std::int32_t>(s.segmentation.kind));
    out.Put(s.segmentation.threshold);
    out.Put(static_cast<std::int32_t>(s.segmentation.neighbours));
    out.Put(static_cast<std::uint64_t>(s.planes.size()));
    for (PlaneFormat const& plane : s.planes) {
        out.Put(plane.name);
        out.Put(static_cast<std::int32_t>(plane.type));
        out.Put(plane.factor);
    }
    MeasureOptions const& o = s.options;
    out.Put(o.properties);
    out.Put(o.pixel_size.x);
    out.Put(o.pixel_size.y);
    out.Put(o.pixel_size.z);
    out.Put(o.pixel_size.unit);
    out.Put(o.nan);
    out.Put(o.inf);
    out.Put(o.min_pixels);
    out.Put(o.max_pixels);
    out.Put(static_cast<std::uint8_t>(o.drop_at_edge));
    out.Put(static_cast<std::uint8_t>(o.keep_gaps));
}

DataType GetType(Reader& in)
{
    auto const type = static_cast<DataType>(in.Get<std::int32_t>());
    if (!IsInSet<NumericTypes>(type))
        Damaged("an element type does not exist.");
    return type;
}

MeasureSetup GetSetup(Reader& in)
{
    MeasureSetup s;
    s.width = in.Get<std::uint32_t>();
    s.height = in.Get<std::int64_t>();
    s.type = GetType(in);
    std::int32_t const kind = in.Get<std::int32_t>();
    if (kind < Segmentation::above || kind > Segmentation::labels)
        Damaged("a kind of objects does not exist.");
    s.segmentation.kind = static_cast<Segmentation::kind_t>(kind);
    s.segmentation.threshold = in.Get<double>();
    std::int32_t const neighbours = in.Get<std::int32_t>();
    if (neighbours != 4 && neighbours != 8)
        Damaged("a number of neighbours does not exist.");
    s.segmentation.neighbours = static_cast<Neighbours>(neighbours);
    s.planes.resize(in.Count(20));
    for (PlaneFormat& plane : s.planes) {
        plane.name = in.GetText();
        plane.type = GetType(in);
        plane.factor = in.Get<double>();
    }
    MeasureOptions& o = s.options;
    o.properties = in.GetText();
    o.pixel_size.x = in.Get<double>();
    o.pixel_size.y = in.Get<double>();
    o.pixel_size.z = in.Get<double>();
    o.pixel_size.unit = in.GetText();
    o.nan = in.GetText();
    o.inf = in.GetText();
    o.min_pixels = in.Get<std::int64_t>();
    o.max_pixels = in.Get<std::int64_t>();
    o.drop_at_edge = in.GetBool();
    o.keep_gaps = in.GetBool();
    return s;
}

constexpr std::size_t run_size = 8 + 4 + 4;

void PutObject(Writer& out, OpenObject const& object, Piece const& whole)
{
    out.Put(object.label);
    out.Put(static_cast<std::uint8_t>(object.from_above));
    out.Put(static_cast<std::uint64_t>(whole.runs.size()));
    for (Run const& run : whole.runs) {
        out.Put(run.row);
        out.Put(run.x0);
        out.Put(run.x1);
    }
    out.PutAll(whole.values);
}

OpenObject GetObject(Reader& in, MeasurerState const& state)
{
    OpenObject object;
    object.label = in.Get<std::uint64_t>();
    object.from_above = in.GetBool();
    Piece piece;
    piece.runs.resize(in.Count(run_size));
    if (piece.runs.empty())
        Damaged("an object has no pixels.");
    for (std::size_t i = 0; i < piece.runs.size(); ++i) {
        Run& run = piece.runs[i];
        run.row = in.Get<std::int64_t>();
        run.x0 = in.Get<std::uint32_t>();
        run.x1 = in.Get<std::uint32_t>();
        run.at = piece.pixels;
        if (run.row < state.first_row || run.row >= state.end_row || run.x0 >= run.x1 ||
            run.x1 > state.plan.setup.width || (i > 0 && !IsBefore(piece.runs[i - 1], run)))
            Damaged("pixels of an object lie outside of its rows, or out of order.");
        piece.pixels += run.Length();
    }
    piece.values = in.GetAll<unsigned char>(piece.pixels * state.plan.BytesOfPixel());
    object.pieces.push_back(std::move(piece));
    return object;
}

/// The values of a gathered piece in the order of its runs, as they are read back.
void OrderValues(Plan const& plan, Piece& piece)
{
    Buffer<unsigned char> ordered;
    unsigned char const* plane = piece.values.data();
    for (std::size_t p = 0; p < plan.setup.planes.size(); ++p) {
        std::size_t const size = plan.PlaneSize(p);
        for (Run const& run : piece.runs)
            ordered.Append(plane + run.at * size, run.Length() * size);
        plane += piece.pixels * size;
    }
    piece.values = std::move(ordered);
}

std::uint32_t Checksum(char const* bytes, std::size_t size)
{
    return static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<unsigned char const*>(bytes), size));
}

} // namespace

safestring Measurer::Save() const
{
    MeasurerState const& s = *state_;
    Writer out;
    PutSetup(out, s.plan.setup);
    out.Put(s.first_row);
    out.Put(s.end_row);
    ResultRows const rows = Sorted(s.rows, s.plan.columns.size());
    out.Put(static_cast<std::uint64_t>(rows.keys.size()));
    out.PutAll(rows.keys);
    out.PutAll(rows.cells);

    std::vector<Piece> wholes;
    std::vector<std::uint32_t> order(s.open.size()), place(s.open.size());
    for (OpenObject const& object : s.open) {
        wholes.push_back(s.Gather(object));
        OrderValues(s.plan, wholes.back());
    }
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, [&](std::uint32_t a, std::uint32_t b) {
        return IsBefore(wholes[a].runs.front(), wholes[b].runs.front());
    });
    out.Put(static_cast<std::uint64_t>(order.size()));
    for (std::uint32_t i = 0; i < order.size(); ++i) {
        PutObject(out, s.open[order[i]], wholes[order[i]]);
        place[order[i]] = i;
    }
    out.Put(static_cast<std::uint64_t>(s.border_object.size()));
    for (std::size_t i = 0; i < s.border_object.size(); ++i) {
        out.Put(s.border[2 * i]);
        out.Put(s.border[2 * i + 1]);
        out.Put(place[s.border_object[i]]);
    }

    safestring const body = out.Take();
    Writer head;
    for (char const c : magic)
        head.Put(c);
    head.Put(version);
    head.Put(static_cast<std::uint64_t>(body.size()));
    head.Put(Checksum(body.data(), body.size()));
    return head.Take() + body;
}

Measurer Measurer::Load(safestring const& text)
{
    if (text.size() < head_size || std::memcmp(text.data(), magic, sizeof magic) != 0)
        Damaged("it does not begin as one.");
    Reader head(text.data() + sizeof magic, head_size - sizeof magic);
    if (head.Get<std::uint32_t>() != version)
        Damaged("it was written by another version.");
    std::uint64_t const size = head.Get<std::uint64_t>();
    char const* const body = text.data() + head_size;
    if (size != text.size() - head_size)
        Damaged("it has not the length that it states.");
    if (head.Get<std::uint32_t>() != Checksum(body, size))
        Damaged("its checksum is wrong.");

    Reader in(body, size);
    MeasureSetup setup = GetSetup(in);
    std::int64_t const first_row = in.Get<std::int64_t>();
    auto state = std::make_unique<MeasurerState>(std::move(setup), first_row);
    state->end_row = in.Get<std::int64_t>();
    if (state->end_row < first_row || state->end_row > state->plan.frame.height)
        Damaged("its rows are not rows of the picture.");
    std::size_t const width = state->plan.columns.size();
    std::size_t const count = in.Count(sizeof(std::int64_t) + width * sizeof(Cell));
    state->rows.keys = in.GetAll<std::int64_t>(count);
    state->rows.cells = in.GetAll<Cell>(count * width);
    for (std::size_t n = in.Count(run_size); n > 0; --n)
        state->open.push_back(GetObject(in, *state));
    for (std::size_t n = in.Count(12); n > 0; --n) {
        std::uint32_t const x0 = in.Get<std::uint32_t>(), x1 = in.Get<std::uint32_t>();
        bool const behind = state->border.empty() || state->border.back() <= x0;
        if (x0 >= x1 || x1 > state->plan.setup.width || !behind)
            Damaged("runs of its last row are out of order.");
        state->border.insert(state->border.end(), {x0, x1});
        state->border_object.push_back(in.Get<std::uint32_t>());
        if (state->border_object.back() >= state->open.size())
            Damaged("a run of its last row belongs to no object.");
    }
    in.ExpectEnd();
    return Measurer(std::move(state));
}

} // namespace NKelmic
