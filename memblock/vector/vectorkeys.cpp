#include <memblock/vector/vector.h>

#include <memblock/base/chars_internal.h>
#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/serial/warning.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vectorforms_internal.h>

#include <climits>
#include <cstdlib>
#include <vector>

namespace NKelmic {

namespace {

constexpr char const* list_head = "length,size,range,elemsize,elemtype,";
constexpr char const* list_of_objects = "%@vectordata,";
constexpr char const* list_full =
    "%buffer,%buffersize,factor,min,max,minat,maxat,mean,median,fmedian,sum,stddev,histogram,dims,%"
    "_min,%_max,%_mean,%_median,%_fmedian,%_rough_max,";
constexpr char const* list_short_head = "length,";
constexpr char const* list_short = "elemsize,factor,min,max,mean,median,stddev,";

constexpr std::string_view slice_key = "@slice:";
constexpr std::string_view insert_key = "@insert:";

// ---- reading

/// A count; it is an integer of the short kind where it fits.
DataItem CountItem(unsigned long n)
{
    return n <= INT_MAX ? DataItem(static_cast<int>(n)) : DataItem(static_cast<long long>(n));
}

DataItem Length(Vector const& v, ThrowHandlerFunc)
{
    return CountItem(v.Length());
}

DataItem Range(Vector const& v, ThrowHandlerFunc)
{
    return RangeOfIndices(v.Length());
}

// A value that is stored already costs one look-up.

template <int key>
DataItem Raw(Vector const& v, ThrowHandlerFunc handler)
{
    return v.SecondaryItem(key, handler); // undefined has been reported
}

/// A summary value times the factor.
template <int key>
DataItem Cooked(Vector const& v, ThrowHandlerFunc handler)
{
    DataItem const raw = v.SecondaryItem(key, handler);
    return raw.IsUndefined() ? raw : DataItem(raw.GetDouble() * v.Factor());
}

template <int key>
DataItem Integer(Vector const& v, ThrowHandlerFunc handler)
{
    DataItem const raw = v.SecondaryItem(key, handler);
    return raw.IsUndefined() ? raw : DataItem(SafeValue(raw).GetInt(handler));
}

DataItem Histogram(Vector const& v, ThrowHandlerFunc handler)
{
    // Whatever failed below, the key reports it in its own words.
    PMemBlock const histogram = v.SecondaryMemBlock(key_histogram, throw_never);
    if (!histogram)
        Report(handler, err_kind, "Cannot calculate histogram");
    return histogram;
}

DataItem Expression(Vector const& v, ThrowHandlerFunc)
{
    return VectorExpression(v);
}

/// The bytes of the buffer themselves: what is written through the result is written into
/// the vector. The result keeps the buffer; a vector that is written meanwhile takes a new one.
DataItem Buffer(Vector const& v, ThrowHandlerFunc)
{
    v.Pointer(); // runs a delayed initialization
    MemChunk const& chunk = v.Chunk().Chunk();
    if (chunk.IsShared())
        Warning(err_kind,
                Text("The object is in shared use, changing the raw data buffer may alter "
                     "apparently unrelated data: %s",
                     v));
    MemChunk bytes( // lets the kept one go even where it can't be made
        chunk.Data(), [](void*, void* kept) { delete static_cast<MemChunk*>(kept); },
        new MemChunk(chunk), chunk.Size());
    // A write to the bytes of an object would crash later: such a write gets its own copy.
    bytes.SetReadOnly(chunk.IsReadOnly() || Vector::IsObject(v.ElemType()));
    return Vector::Create(TypedChunk(bytes.Size(), Vector::Byte, bytes, 0), 1.0);
}

DataItem SharedData(Vector const& v, ThrowHandlerFunc)
{
    return Vector::Create(v.Chunk(), v.Factor());
}

DataItem PlainData(Vector const& v, ThrowHandlerFunc)
{
    auto const data = Vector::Create(v.Chunk(), v.Factor());
    if (Vector::IsObject(v.ElemType()))
        data->Pointer(); // object elements are never shared by two vectors that scripts hold
    return data;
}

// ---- writing

bool SetLength(Vector& v, SafeValue const& value, ThrowHandlerFunc)
{
    int const length = value.GetInt();
    if (length < 0)
        Raise(err_kind, "Vector length cannot be negative: %d", length);
    v.ResizeVector(static_cast<unsigned long>(length), true, true);
    return true;
}

bool SetElementType(Vector& v, SafeValue const& value, ThrowHandlerFunc)
{
    v.SetElemType(Vector::String2Type(value.GetString(), throw_always), true, false);
    return true;
}

// Settled: the raw values stay, so that `x.factor=x.factor*f` scales the cooked ones.
bool SetRawFactor(Vector& v, SafeValue const& value, ThrowHandlerFunc)
{
    v.SetFactor(value.GetFloating());
    return true;
}

bool SetEmptyDimensions(Vector& v, SafeValue const& value, ThrowHandlerFunc)
{
    if (LimitCount(v) != 0)
        Raise(err_kind, "Dimensions can only be set while there is no data: %s", v);
    safestringlist const sizes = SplitString(value.GetString(), ",", false);
    std::vector<SafeValue> arguments;
    // One more than the rank at most: enough for the class to refuse, however long the text is.
    for (unsigned long i = 0, n = sizes.size(); i < n && i <= unsigned(v.GetRank()); ++i)
        arguments.emplace_back(CountItem(StringToUInt()(sizes[i])));
    if (v.DoVerb("SetDimSizes", static_cast<int>(arguments.size()), arguments.data()).IsUndefined())
        Raise(err_kind, "Cannot set item \"%s\" (%s) in a %s object.", "empty_dimensions", value,
              v.Class());
    return true;
}

/// All names that a key may have, without its leading '@': "@mean" is "mean".
constexpr KeyTable vector_keys{std::to_array<Key<Vector>>({
    {"length", Length, SetLength},
    {"size", Length, SetLength},
    {"elemsize", [](Vector const& v, ThrowHandlerFunc) { return CountItem(v.ElemSize()); }},
    {"elemtype",
     [](Vector const& v, ThrowHandlerFunc) -> DataItem { return static_cast<int>(v.ElemType()); },
     SetElementType},
    {"factor", [](Vector const& v, ThrowHandlerFunc) -> DataItem { return v.Factor(); },
     SetRawFactor},
    {"buffer", Buffer},
    {"buffersize",
     [](Vector const& v, ThrowHandlerFunc) { return CountItem(v.Chunk().Chunk().Size()); }},
    {"expression", Expression},
    {"dims", [](Vector const& v, ThrowHandlerFunc) -> DataItem { return v.GetDimSizes(); }},
    {"range", Range},
    {"vector", PlainData},
    {"vectordata", PlainData},
    {"__sharedbuffer__", SharedData}, // the serializer asks for "@__sharedbuffer__"
    {"max", Cooked<key_max>},
    {"min", Cooked<key_min>},
    {"mean", Cooked<key_mean>},
    {"median", Cooked<key_median>},
    {"fmedian", Cooked<key_fmedian>},
    {"sum", Cooked<key_sum>},
    {"stddev", Cooked<key_stddev>},
    {"finitemin", Cooked<key_finitemin>},
    {"finitemax", Cooked<key_finitemax>},
    {"_max", Raw<key_max>},
    {"_min", Raw<key_min>},
    {"_mean", Raw<key_mean>},
    {"_median", Raw<key_median>},
    {"_fmedian", Raw<key_fmedian>},
    {"_rough_max", Raw<key_rough_max>},
    {"rough_max", Integer<key_rough_max>},
    {"maxat", Integer<key_maxat>},
    {"minat", Integer<key_minat>},
    {"histogram", Histogram},
    {"empty_dimensions", nullptr, SetEmptyDimensions},
})};

Key<Vector> const* FindKey(safestring const& key)
{
    bool const marked = key[0] == '@'; // a text ends with its NUL
    return vector_keys.Find(key.data() + marked, key.size() - marked);
}

bool BeginsWith(safestring const& key, std::string_view head)
{
    return key.size() >= head.size() && SameName({key.data(), head.size()}, head);
}

safestring KeyList(Vector const& v, safestring const& key, ThrowHandlerFunc handler)
{
    bool const only_content = key == "*";
    safestring list = only_content ? list_short_head : list_head;
    if (!only_content && Vector::IsObject(v.ElemType()))
        list += list_of_objects;
    list += only_content ? list_short : list_full;
    list += v.MemBlock::ResolveSubItem(key, handler).GetString();
    return list;
}

// ---- positions

bool IsIndexKey(safestring const& key)
{
    char const c = key[0];
    return IsDigit(c) || c == '-' || c == '+' || (c == '_' && IsDigit(key[1]));
}

/// Read a number and step behind it. What exceeds a long comes out as its limit, out of any range.
bool ReadNumber(char const*& at, long& number)
{
    bool const hexadecimal = *at != '\0' && (at[1] == 'x' || at[1] == 'X');
    char* end = nullptr;
    number = std::strtol(at, &end, hexadecimal ? 16 : 10);
    bool const any = end != at;
    at = end;
    return any;
}

bool IsPosition(Vector const& v, long index, char const* text, ThrowHandlerFunc handler)
{
    if (index >= 0 && index < static_cast<long>(LimitCount(v)))
        return true;
    Report(handler, err_kind, text, 0, LimitCount(v), index);
    return false;
}

constexpr char const* read_out_of_bounds =
    "Vector::ResolveSubItem(): Index out of bounds [%d..%d): %d ";
constexpr char const* write_out_of_bounds =
    "Vector::SetSubItem(): Index out of bounds [%d..%d): %d ";

/// Both ends belong to the slice. An end beyond the last element means that one.
DataItem SliceByEnds(Vector const& v, long first, long last, ThrowHandlerFunc handler)
{
    if (!IsPosition(v, first, read_out_of_bounds, handler))
        return {};
    if (last < 0) { // the end 0 of `CloneSlice` would mean another thing
        IsPosition(v, last, read_out_of_bounds, handler);
        return {};
    }
    long const end = std::min(last, static_cast<long>(v.Length()) - 1) + 1;
    return v.CloneSlice(static_cast<unsigned int>(first), static_cast<unsigned int>(end));
}

/// "3", "_3", "3..5".
DataItem ByIndex(Vector const& v, safestring const& key, ThrowHandlerFunc handler)
{
    bool const raw = key[0] == '_';
    char const* at = key.c_str() + raw;
    char const* const end = key.data() + key.size();
    long index = 0;
    if (ReadNumber(at, index)) {
        if (at == end) {
            if (!IsPosition(v, index, read_out_of_bounds, handler))
                return {};
            int const i = static_cast<int>(index);
            return raw ? v.GetDataItem(i) : v.GetDataItemWithFactor(i);
        }
        long last = 0;
        if (end - at > 2 && at[0] == '.' && at[1] == '.') {
            at += 2;
            if (ReadNumber(at, last) && at == end)
                return SliceByEnds(v, index, last, handler);
        }
    }
    Report(handler, err_kind, "Invalid subkey: %s", key.c_str() + raw);
    return {};
}

/// "@slice:1:4"; the end does not belong to the slice.
DataItem SliceByKey(Vector const& v, safestring const& key, ThrowHandlerFunc handler)
{
    return Attempt(handler, [&]() -> DataItem {
        auto const colon = key.find(':', slice_key.size());
        unsigned int const from =
            StringToUInt()(key.substr(slice_key.size(), colon - slice_key.size()));
        unsigned int const to =
            colon == safestring::npos ? 0 : StringToUInt()(key.substr(colon + 1));
        return v.CloneSlice(from, to);
    });
}

/// A name in quotes without the outer pair. No name has more than a few: of more than that, all
/// others go at once, where each would cost a copy and a call.
safestring Unquoted(safestring const& key)
{
    constexpr std::size_t many = 8;
    std::size_t pairs = 1;
    while (2 * pairs + 2 <= key.size() && key[pairs] == '@' && key[key.size() - 1 - pairs] == '@')
        ++pairs;
    std::size_t const cut = pairs > many ? pairs - many : 1;
    return key.substr(cut, key.size() - 2 * cut);
}

bool InsertByKey(Vector& v, safestring const& key, SafeValue const& value)
{
    unsigned int const position = StringToUInt()(key.substr(insert_key.size()));
    try {
        v.Insert(static_cast<int>(std::min<unsigned int>(position, INT_MAX)), value);
    } catch (Exception const&) {
        Raise(err_kind, "Insertion into a vector not supported: %s", v);
    }
    return true;
}

/// Whether a key asks for elements or for what is computed of them.
bool ReadsElements(safestring const& key)
{
    auto const* const row = FindKey(key);
    return IsIndexKey(key) || (row && row->read) || BeginsWith(key, slice_key);
}

bool SetByIndex(Vector& v, safestring const& key, SafeValue const& value, ThrowHandlerFunc handler)
{
    unsigned int const index = StringToUInt()(key);
    if (!IsPosition(v, index, write_out_of_bounds, handler))
        return false;
    v.SetElem(index, static_cast<DataItem const&>(value));
    return true;
}

} // namespace

DataItem Vector::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (HoldsStartsOnly(*this) && ReadsElements(key))
        return PackedLimits(*this)->Vector::ResolveSubItem(key, handler);
    if (IsIndexKey(key))
        return ByIndex(*this, key, handler);
    if (auto const* row = FindKey(key); row && row->read)
        return ReadKey(*row, *this, handler);
    if (key.empty() || key == "!" || key == "*")
        return KeyList(*this, key, handler);
    if (BeginsWith(key, slice_key))
        return SliceByKey(*this, key, handler);
    if (key.size() > 1 && key[0] == '@' && key.back() == '@')
        return ResolveSubItem(Unquoted(key), handler);
    return MemBlock::ResolveSubItem(key, handler);
}

bool Vector::DoSetSubItem(safestring const& key, SafeValue const& value,
                          safestring const& full_path, ThrowHandlerFunc handler)
{
    if (auto const* row = FindKey(key); row && row->write)
        return row->write(*this, value, handler);
    if (BeginsWith(key, insert_key))
        return InsertByKey(*this, key, value);
    if (is_numeric(key))
        return SetByIndex(*this, key, value, handler);
    return MemBlock::DoSetSubItem(key, value, full_path, handler);
}

} // namespace NKelmic
