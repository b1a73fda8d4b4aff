#include <memblock/imaging/datacube.h>

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/shape_internal.h>

#include <algorithm>
#include <array>
#include <limits>

namespace NKelmic {

namespace {

constexpr KeyTable cube_keys{std::to_array<Key<DataCube>>({
    {"width", [](DataCube const& cube, ThrowHandlerFunc) -> DataItem { return cube.width(); }},
    {"height", [](DataCube const& cube, ThrowHandlerFunc) -> DataItem { return cube.height(); }},
    {"depth", [](DataCube const& cube, ThrowHandlerFunc) -> DataItem { return cube.depth(); }},
    {"mask",
     [](DataCube const& cube, ThrowHandlerFunc) -> DataItem { return cube.GetMaskVector(1); }},
})};

/// A coordinate that is too large for any cube stays so as an int.
int AsInt(unsigned long coordinate)
{
    return static_cast<int>(std::min(coordinate, Coordinates::beyond - 1));
}

/// The numbers between the commas of a key that is written to; no number at all for other keys.
struct Place {
    std::array<int, 3> at{};
    int count = 0;
};

Place ReadPlace(safestring const& key)
{
    constexpr double beyond = std::numeric_limits<int>::max();
    safestringlist const parts = SplitString(key, ",", false);
    Place place;
    if (parts.size() > place.at.size())
        return {};
    for (unsigned long i = 0; i < parts.size(); ++i) {
        safestring part = parts[i];
        apply_trim(part);
        // The key of a cube has numbers only. Others may be names of items, which the vector knows.
        if (!is_numeric(part))
            return {};
        // Kept in the range of int, so that a number far outside is refused with its place and not
        // as another one.
        double const number = std::clamp(RoundHalfAway(StrToDouble(part)), -beyond, beyond);
        place.at[i] = static_cast<int>(number);
        ++place.count;
    }
    return place;
}

/// The element of three coordinates; one that no vector has if they overflow or are negative.
unsigned int IndexOf(DataCube const& cube, Place const& place)
{
    auto const [x, y, z] = place.at;
    // As indices these would be large numbers, and their sum could come back into range.
    if (x < 0 || y < 0 || z < 0)
        return static_cast<unsigned int>(Coordinates::beyond);
    auto const step = [](unsigned long from, unsigned long size, unsigned long number) {
        return std::min(from + size * number, Coordinates::beyond);
    };
    unsigned long const row =
        step(static_cast<unsigned long>(y), cube.height(), static_cast<unsigned long>(z));
    return static_cast<unsigned int>(step(static_cast<unsigned long>(x), cube.width(), row));
}

/// The object of a class in a value; a number is taken as a vector of one element.
template <class T>
DerivedPointer<T> ObjectIn(SafeValue const& value, char const* refusal)
{
    PMemBlock const block = value.GetMemory(throw_never);
    T* const object = MemCast<T>(block);
    if (!object)
        Raise(err_kind, refusal, value);
    return DerivedPointer<T>(object);
}

void Write(DataCube& cube, Place const& place, SafeValue const& value)
{
    switch (place.count) {
    // The fewer numbers a key has, the more it names: a plane, the column above a pixel, an
    // element.
    case 1:
        return cube.ReplacePlane(place.at[0], ObjectIn<Image>(value, "Not an image: %s"));
    case 2:
        return cube.ReplaceZVector(place.at[0], place.at[1],
                                   ObjectIn<Vector>(value, "Not a vector: %s"));
    default:
        return cube.SetElem(IndexOf(cube, place), value.GetFloating());
    }
}

// ---- verbs

DataItem CreateVerb(DataCube&, int argc, SafeValue const* argv)
{
    if (argc != 4 || !argv[3].IsString())
        Raise(err_kind, "Incorrect parameters for DataCube creation. Syntax: create(\"datacube\", "
                        "width, height, depth, \"datatype\")");
    return DataCube::Create(argv[0].GetInt(), argv[1].GetInt(), argv[2].GetInt(),
                            Vector::String2Type(argv[3].GetString(), throw_always), 1.0);
}

DataItem GetRankVerb(DataCube& cube, int, SafeValue const*)
{
    return cube.GetRank();
}

/// Settled: the count of the arguments is the number of the dimension, whatever they are.
DataItem GetDimSizeVerb(DataCube& cube, int argc, SafeValue const*)
{
    if (argc < 0 || argc > 2)
        Raise(err_kind, "No such dimension in DataCube: %d", argc);
    return cube.GetDimSize(argc);
}

DataItem SetDimSizesVerb(DataCube& cube, int argc, SafeValue const* argv)
{
    unsigned int sizes[] = {cube.width(), cube.height(), cube.depth()};
    for (int i = 0; i < std::min(argc, 3); ++i)
        sizes[i] = static_cast<unsigned int>(argv[i].GetInt());
    cube.ChangeDimSizes(sizes, 3);
    return 1;
}

constexpr KeyTable cube_verbs{std::to_array<Verb<DataCube>>({
    {"create", 4, CreateVerb},
    {"GetRank", 0, GetRankVerb},
    {"GetDimSize", 0, GetDimSizeVerb},
    {"SetDimSizes", 0, SetDimSizesVerb},
})};

} // namespace

DataItem DataCube::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* row = cube_keys.Find(key))
        return ReadKey(*row, *this, handler);
    if (key.empty() || key == "!")
        return "width,height,depth,mask," + Vector::ResolveSubItem(key, handler).GetString();
    if (key == "*")
        return "width,height,depth," + Vector::ResolveSubItem(key, handler).GetString();
    Coordinates const point = ReadCoordinates(key.c_str(), key.size());
    switch (point.count) {
    case 1:
        // These throw; a script that asks without a handler gets undefined instead.
        return Attempt(handler, [&]() -> DataItem { return GetPlane(AsInt(point.at[0])); });
    case 2:
        return Attempt(handler, [&]() -> DataItem {
            return GetZVector(AsInt(point.at[0]), AsInt(point.at[1]));
        });
    case 3:
        return Vector::ResolveSubItem(IndexKey(point, width(), height()), handler);
    default:
        return Vector::ResolveSubItem(key, handler);
    }
}

bool DataCube::DoSetSubItem(safestring const& key, SafeValue const& value,
                            safestring const& full_path, ThrowHandlerFunc handler)
{
    Place const place = ReadPlace(key);
    if (place.count == 0)
        return Vector::DoSetSubItem(key, value, full_path, handler);
    Write(*this, place, value);
    return true;
}

DataItem DataCube::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (auto const* row = cube_verbs.Find(verb))
        return row->run(*this, argc, argv);
    // The vector calls this before it changes type: a cube of texts has no planes.
    if (SameName(verb, "notif_elmtyp_chng") && argc > 0)
        CheckElemTypeSupported(static_cast<DataType>(argv[0].GetInt()));
    return Vector::DoVerb(verb, argc, argv);
}

} // namespace NKelmic
