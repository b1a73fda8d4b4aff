#include <memblock/imaging/point.h>

#include <memblock/base/number.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/imaging/targetdata_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>

namespace NKelmic {

namespace {

constexpr KeyTable point_keys{std::to_array<Key<Point>>({
    {"x", [](Point const& p, ThrowHandlerFunc) -> DataItem { return p.GetInt(0); }},
    {"y", [](Point const& p, ThrowHandlerFunc) -> DataItem { return p.GetInt(1); }},
})};

} // namespace

Point::Point(int rank) : Vector(NewChunk(static_cast<unsigned long>(rank), Int), 1.0) {}

DerivedPointer<Point> Point::Create()
{
    return Create(0, 0);
}

DerivedPointer<Point> Point::Create(int x, int y)
{
    int const coords[] = {x, y};
    DerivedPointer<Point> point = Create(coords, 2);
    point->target_.descr = "Image of unknown size";
    return point;
}

DerivedPointer<Point> Point::Create(int const* coords, int rank)
{
    DerivedPointer<Point> point(new Point(rank));
    std::copy_n(coords, rank, point->IntPointer());
    point->target_.descr = Text("Array of rank %d of unknown size", rank);
    point->target_.dims.assign(static_cast<std::size_t>(rank), 0);
    return point;
}

DerivedPointer<Point> Point::Create(int x, int y, IndexVector::TargetData const& target)
{
    if (target.dims.size() != 2)
        Raise(err_kind, "Target is not an image");
    DerivedPointer<Point> point = Create(x, y);
    point->target_ = target;
    return point;
}

DerivedPointer<Point> Point::Create(unsigned int index, IndexVector::TargetData const& target)
{
    // Ahead of the divisions by these sizes.
    if (std::count(target.dims.begin(), target.dims.end(), 0U) > 0)
        Raise(err_kind, "Target of a point is empty: %s", target.descr);
    DerivedPointer<Point> point(new Point(static_cast<int>(target.dims.size())));
    int* coordinate = point->IntPointer();
    // The first coordinate runs fastest, as in the order of the pixels. An index beyond the target
    // wraps.
    for (unsigned int const size : target.dims) {
        *coordinate++ = static_cast<int>(index % size);
        index /= size;
    }
    point->target_ = target;
    return point;
}

char const* Point::Class() const
{
    return StaticClass();
}

bool Point::Conforms(char const* classname) const
{
    return SameName(classname, "point") || Vector::Conforms(classname);
}

bool Point::Entertain(MemBlockVisitor& visitor, safestring const& path, entertainmode_t mode)
{
    KeepAlive const alive(*this);
    bool const go_on = Vector::Entertain(visitor, path, mode);
    // Only a walk that writes a file wants the fields; they are values, not objects to visit.
    if (go_on && mode == em_traverse)
        VisitTarget(target_, visitor, path);
    return go_on;
}

char const* Point::ClassDescription() const
{
    return "Point - encapsulates a position in an array of one or more dimensions.\n"
           "Derived from: Vector\n"
           "Subkeys:\n"
           "\tx - return the first coordinate\n"
           "\ty - return the second coordinate\n"
           "\ttarget_descr - return the description of the array\n";
}

PMemBlock Point::DoClone(int) const
{
    return DerivedPointer<Point>(new Point(*this));
}

safestring Point::DoGetDescription() const
{
    safestring coordinates;
    for (unsigned int i = 0; i < Length(); ++i)
        coordinates.append(i ? ", " : "").append(GetString(static_cast<int>(i)));
    return Text("Point (%s) into: %s", coordinates, target_.descr);
}

DataItem Point::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* row = point_keys.Find(key))
        return ReadKey(*row, *this, handler);
    if (SameName(key.c_str(), "target_descr"))
        return target_.descr;
    if (key.empty() || key == "!")
        return "x,y,target_descr," + Vector::ResolveSubItem(key, handler).GetString();
    return Vector::ResolveSubItem(key, handler);
}

bool Point::DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                         ThrowHandlerFunc handler)
{
    if (auto const done = SetTargetKey(target_, key, value, handler))
        return *done;
    return Vector::DoSetSubItem(key, value, full_path, handler);
}

void Point::ResizeVector(unsigned long n, bool, bool)
{
    // The same length is no resize: edits of the base class call this with what they have.
    if (n != Length())
        Raise(err_kind, refusal_to_resize);
}

/// A part of the coordinates is no position.
DerivedPointer<Vector> Point::DoCloneSlice(unsigned int from, unsigned int to) const
{
    return Vector::Create(CopyOfRange(Chunk(), from, to - from), Factor());
}

} // namespace NKelmic
