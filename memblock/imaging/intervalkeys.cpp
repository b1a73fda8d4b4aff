#include <memblock/base/raise.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/md5.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/imaging/targetdata_internal.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/vectorchunk_internal.h>

namespace NKelmic {

namespace {

// ---- What can be read

DataItem Mask(IntervalVector const& v, ThrowHandlerFunc handler)
{
    // Settled: zones have no mask, though MergedIndexVector would give one.
    if (PixelList(v.Target()))
        return DataItem(v.MergedIndexVector());
    Report(handler, err_kind, "Intervalvector target not supported: %s", v.Target());
    return {};
}

DataItem FlatTarget(IntervalVector const& v, ThrowHandlerFunc)
{
    if (v.LgType() == IntervalVector::subnum)
        return DataItem(v.MergedVector());
    if (Layer(v.Target()))
        return DataItem(v.MergedTarget());
    return DataItem(v.MergedIndexVector());
}

/// A dimension of the image of the pixels; undefined, after a report, where there is none.
template <int dimension>
DataItem ImageSize(IntervalVector const& v, ThrowHandlerFunc handler)
{
    unsigned int sizes[2];
    v.GetImageDimensions(sizes[0], sizes[1], handler);
    // A report may have been ignored, so the sizes alone do not say whether there is an image.
    auto const pixels = v.GetFinalIndexVectorTarget();
    return pixels && pixels->TargetRank() == 2 ? DataItem(sizes[dimension]) : DataItem();
}

DataItem Area(IntervalVector const& v, ThrowHandlerFunc)
{
    DerivedPointer<IndexVector> const self{static_cast<IndexVector const*>(&v)};
    return DataItem(static_cast<int>(find_area_rec(self, 0, v.IntervalCount())));
}

// ---- What can be set: a structure is rebuilt from its layers, in any order of keys

/// The vector in a value, or null after a report with `refusal`, whose one %s is the value.
DerivedPointer<Vector> VectorIn(SafeValue const& value, char const* refusal,
                                ThrowHandlerFunc handler)
{
    PMemBlock const object = MemoryOrNull(value);
    Vector* const vector = MemCast<Vector>(object);
    if (!vector)
        Report(handler, err_kind, refusal, value.GetDescription());
    return DerivedPointer<Vector>(vector);
}

/// The elements as limits: unsigned int, factor 1.0. Without any there are no intervals, which have
/// one limit.
TypedChunk AsLimits(DerivedPointer<Vector> const& vector)
{
    if (LimitCount(cref(vector)) == 0)
        return NewChunk(1, Vector::UnsignedInt);
    auto const limits = AsIndices(vector);
    cref(limits).Pointer(); // what was put off must be done now
    return cref(limits).Chunk();
}

bool SetCount(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    int const count = value.GetInt();
    if (count < 0) {
        Report(handler, err_kind, "Cannot set intervalcount to %d in %d-element vector", count,
               LimitCount(v));
        return false;
    }
    auto const resize = [count](IntervalVector& limits) {
        unsigned int const old_count = limits.IntervalCount();
        unsigned int const last = std::as_const(limits).Start(0)[old_count];
        limits.ResizeVector(static_cast<unsigned long>(count) + 1, true, true);
        if (limits.IntervalCount() > old_count)
            // New intervals are empty ones at the end. Zeros would make intervals that fall.
            std::fill_n(limits.Start(0) + old_count, limits.IntervalCount() + 1 - old_count, last);
        limits.ContentHasBeenChanged();
    };
    if (!EditPacked(v, [&](Vector& packed) { resize(static_cast<IntervalVector&>(packed)); }))
        resize(v);
    return true;
}

/// Settled: by key, numbers that are there become the innermost layer of zones, where `SetLgType`
/// puts pixels in their place. The layers of a file come in any order, and the word "subobj"
/// between the numbers and the limits of the zones must not drop the numbers.
bool SetType(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc)
{
    safestring const word = value.GetString();
    if (word == IntervalVector::logic2string(IntervalVector::subobj) && v.Target() &&
        SameName(v.Target()->Class(), "vector")) {
        unsigned int const zones = std::max(ItemCount(v.Target().Pointer()), LastEnd(v));
        v.SetTarget(IntervalVector::Create(zones, DerivedPointer<Vector>(v.Target())));
    }
    v.SetLgType(word);
    return true;
}

bool SetInnerIndexArray(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    auto const vector = VectorIn(
        value, "IntervalVector::set(\"inner_index_array\"): this is not a vector: %s", handler);
    if (!vector)
        return false;
    // Files hold plain numbers. They get the sizes of the target that is there, which come by
    // another key.
    PMemBlock pixels(PixelList(vector));
    if (!pixels) {
        auto const present = v.GetFinalIndexVectorTarget();
        pixels = IndexVector::Create(vector, present ? cref(present).GetTargetData()
                                                     : IndexVector::TargetData());
    }
    // Each layer on the way is made private: the write goes to the innermost one, and other owners
    // keep theirs.
    IntervalVector* layer = &v;
    while (Layer(layer->Target()))
        layer = Layer(layer->OwnTarget());
    if (!PixelList(layer->Target())) {
        Report(handler, err_kind,
               "Cannot set as inner_index_array, does not match current IntervalVector structure: "
               "%s: %s",
               vector, v);
        return false;
    }
    if (!pixels.Conforms("indexvector"))
        ThrowAssertException(__FILE__, __LINE__, "v.Conforms(\"indexvector\")");
    // Unchecked length: the limits may have come first, for pixels that come now.
    layer->ReplaceTarget(pixels);
    v.UpdateType();
    v.ContentHasBeenChanged();
    return true;
}

bool SetInnerVector(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    auto const vector =
        VectorIn(value, "IntervalVector::set(\"inner_vector\"): this is not a vector: %s", handler);
    if (!vector)
        return false;
    IntervalVector* layer = &v;
    while (Layer(layer->Target()))
        layer = Layer(layer->OwnTarget());
    layer->SetTarget(vector);
    v.UpdateType();
    v.ContentHasBeenChanged();
    return true;
}

bool SetOuterIndexArray(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    auto const vector = VectorIn(
        value, "IntervalVector::set(\"outer_index_array\"): this is not a vector: %s", handler);
    // The chunk and not its elements: the number of intervals follows from its length.
    if (vector)
        v.SetTypedChunk(AsLimits(vector));
    return static_cast<bool>(vector);
}

bool SetMediumIndexArray(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    auto const vector = VectorIn(
        value, "IntervalVector::set(\"medium_index_array\"): this is not a vector: %s", handler);
    if (!vector)
        return false;
    // Without a middle layer one is put between the limits and the target, so that the pixels may
    // have come before it.
    DerivedPointer<IntervalVector> const medium(
        Layer(v.Target())
            ? v.Target()->Clone(true)
            : PMemBlock(IntervalVector::Create(0, DerivedPointer<Vector>(v.Target()))));
    if (!medium->Conforms("intervalvector"))
        ThrowAssertException(__FILE__, __LINE__, "v.Conforms(\"intervalvector\")");
    medium->SetTypedChunk(AsLimits(vector));
    v.SetTarget(medium);
    return true;
}

bool SetTargetKey(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    auto const vector =
        VectorIn(value, "IntervalVector::set(\"target\"): this is not a vector: %s", handler);
    if (vector)
        v.SetTarget(vector);
    return static_cast<bool>(vector);
}

/// The shape that an index vector speaks of, or that another vector has.
IndexVector::TargetData ShapeOf(Vector const& vector)
{
    if (auto const* const indices = dynamic_cast<IndexVector const*>(&vector))
        return indices->GetTargetData();
    IndexVector::TargetData shape;
    shape.descr = vector.GetDescription();
    for (int i = 0; i < vector.GetRank(); ++i)
        shape.dims.push_back(vector.GetDimSize(i));
    return shape;
}

/// The innermost index vector, or null after a report.
DerivedPointer<IndexVector> FinalTarget(IntervalVector& v, ThrowHandlerFunc handler)
{
    auto const final = OwnFinalTarget(v);
    if (!final)
        Report(handler, err_kind, "Setting target_data: no IndexVector object here: %s", v);
    return final;
}

/// Let `change` give the pixels another shape. One that no structure has is taken back.
template <class Change>
bool ChangeShape(IntervalVector& v, ThrowHandlerFunc handler, Change&& change)
{
    auto const final = FinalTarget(v, handler);
    if (!final)
        return false;
    auto const old = final->GetTargetData();
    if (!change(*final))
        return false;
    try {
        v.UpdateType();
    } catch (...) {
        final->SetTargetData(old);
        v.UpdateType();
        throw;
    }
    v.ContentHasBeenChanged();
    return true;
}

bool SetIndexVectorTarget(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    auto const vector = VectorIn(
        value, "IntervalVector::set(\"indexvector_target\"): this is not a vector: %s", handler);
    return vector && ChangeShape(v, handler, [&](IndexVector& pixels) {
               pixels.SetTargetData(ShapeOf(cref(vector)));
               return true;
           });
}

bool SetTargetData(IntervalVector& v, SafeValue const& value, ThrowHandlerFunc handler)
{
    return ChangeShape(v, handler, [&](IndexVector& pixels) {
        return pixels.SetSubItem("target_data", value, handler);
    });
}

constexpr KeyTable interval_keys{std::to_array<Key<IntervalVector>>({
    {"area", Area},
    {"imagewidth", ImageSize<0>},
    {"imageheight", ImageSize<1>},
    {"itemcount", [](IntervalVector const& v,
                     ThrowHandlerFunc) { return DataItem(static_cast<int>(v.IntervalCount())); }},
    {"mask", Mask},
    {"x", [](IntervalVector const& v, ThrowHandlerFunc) { return DataItem(v.GetXYVector('x')); }},
    {"y", [](IntervalVector const& v, ThrowHandlerFunc) { return DataItem(v.GetXYVector('y')); }},
    {"rawtarget", [](IntervalVector const& v, ThrowHandlerFunc) { return DataItem(v.Target()); }},
    {"target", FlatTarget, SetTargetKey},
    {"interval_count", nullptr, SetCount},
    {"type", nullptr, SetType},
    {"@type", nullptr, SetType},
    {"inner_index_array", nullptr, SetInnerIndexArray},
    {"inner_vector", nullptr, SetInnerVector},
    {"outer_index_array", nullptr, SetOuterIndexArray},
    {"medium_index_array", nullptr, SetMediumIndexArray},
    {"indexvector_target", nullptr, SetIndexVectorTarget},
    {"target_data", nullptr, SetTargetData},
})};
constexpr char const* interval_list = "itemcount,mask,target,%rawtarget,";
constexpr char const* interval_short_list = "itemcount,";

} // namespace

DataItem IntervalVector::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* const row = interval_keys.Find(key); row && row->read)
        return ReadKey(*row, *this, handler);
    DataItem const below = IndexVector::ResolveSubItem(key, handler);
    if (key == "!" || key.empty())
        return DataItem(interval_list + below.GetString());
    if (key == "*")
        return DataItem(interval_short_list + below.GetString());
    return below;
}

bool IntervalVector::DoSetSubItem(safestring const& key, SafeValue const& value,
                                  safestring const& full_path, ThrowHandlerFunc handler)
{
    if (auto const* const row = interval_keys.Find(key); row && row->write)
        return row->write(*this, value, handler);
    return IndexVector::DoSetSubItem(key, value, full_path, handler);
}

bool IntervalVector::Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode)
{
    KeepAlive const alive(*this);
    if (EndArray_ && mode == em_traverse && v.NeedsValidData()) // what is read back has one array
        return PackedLimits(*this)->Entertain(v, path, mode);
    if (!IndexVector::Entertain(v, path, mode))
        return false;
    if (mode == em_no_attr)
        return true;
    TraverseNode const node(path);
    if (mode == em_traverse) {
        DataItem target(Target_), count(static_cast<int>(IntervalCount_)), ends(EndArray_);
        // In this order: a reader sets the keys as they come, and limits need no target to be
        // counted.
        v.Visit(TraverseNode(node, "target").Path(), target);
        v.Visit(TraverseNode(node, "interval_count").Path(), count);
        if (EndArray_)
            v.Visit(TraverseNode(node, "endarray").Path(), ends);
        return true;
    }
    if (EndArray_ && dynamic_cast<md5_visitor*>(&v)) { // both forms of the limits have one hash
        PMemBlock target(ContiguousForm(*this)->Target_);
        return EntertainChild(target, v, TraverseNode(node, "target").Path(), mode);
    }
    if (Target_ && !EntertainChild(Target_, v, TraverseNode(node, "target").Path(), mode))
        return false;
    return !EndArray_ || EntertainEnds(v, TraverseNode(node, "endarray").Path(), mode);
}

bool IntervalVector::EntertainEnds(MemBlockVisitor& visitor, safestring const& path,
                                   entertainmode_t mode)
{
    auto const fits = [this](PMemBlock const& object) {
        Vector const* const ends = MemCast<Vector>(object);
        return ends && ends->ElemType() == UnsignedInt && ends->Length() == IntervalCount_;
    };
    PMemBlock const before = EndArray_->Clone(true); // shares the array until it is written
    bool const go_on = EntertainChild(EndArray_, visitor, path, mode);
    // A visitor may leave anything in this place, which is taken only if it can be an array of
    // ends; or nothing, where it has packed the limits.
    bool const still_apart = Length() == IntervalCount_;
    if (still_apart && !fits(EndArray_) && fits(before))
        EndArray_ = before;
    return go_on;
}

// ---- Verbs

namespace {

DataItem SetDimSizes(IntervalVector& v, int, SafeValue const* argv)
{
    int const n = argv[0].GetInt();
    unsigned int const limits = LimitCount(v);
    if (n <= 0 || static_cast<unsigned int>(n) > limits)
        Raise(err_kind, "Cannot set intervalcount to %d in %d-element vector", n, limits);
    // Settled: the argument is compared with the number of limits, but sets that of intervals.
    v.SetIntervalCount(static_cast<unsigned int>(n));
    return DataItem(1);
}

/// The type that holds the elements of all rows.
DataType CoverOfRows(Vector const& rows)
{
    DataType cover = Vector::NoType;
    PMemBlock const* const elements =
        rows.ElemType() == Vector::PMemory ? rows.PMemoryPointer() : nullptr;
    for (unsigned int k = 0; elements && k < rows.Length(); ++k)
        // Empty rows have no say: their type holds nothing.
        if (Vector const* const row = MemCast<Vector>(elements[k]); row && row->Length() > 0) {
            DataType const type = row->Factor() == 1.0 ? row->ElemType() : Vector::Double;
            cover = cover == Vector::NoType ? type : ChooseCoverType(cover, type);
        }
    return cover == Vector::NoType ? Vector::Double : cover;
}

bool AllAreRegions(Vector const& rows)
{
    if (rows.ElemType() != Vector::PMemory)
        return false;
    PMemBlock const* const elements = rows.PMemoryPointer();
    return std::all_of(elements, elements + rows.Length(), [](PMemBlock const& element) {
        return PixelList(element) || MemCast<Image>(element);
    });
}

DataItem ConvertFromRows(IntervalVector&, int argc, SafeValue const* argv)
{
    if (argc < 2)
        Raise(err_kind, "vector of vectors as \"numeric\" or \"geometric\" attribute");
    DerivedPointer<Vector> const rows(argv[0].GetMemory());
    safestring const word = argv[1].GetString();
    if (word == "numeric")
        return DataItem(IntervalVector::CreateFromVectorOfVectors(rows, CoverOfRows(cref(rows))));
    if (word != "geometric")
        Raise(err_kind, "Representation must be \"numeric\" or \"geometric\"");
    // Regions say themselves which image they are in. Numbers need a frame to be pixels of.
    if (AllAreRegions(cref(rows)))
        return DataItem(pmemory_vector_to_intervalvector(rows));
    Image const* const frame = argc > 2 ? MemCast<Image>(argv[2].GetMemory()) : nullptr;
    if (!frame)
        Raise(err_kind, "For creating a stencil the extra parameter must be an image providing "
                        "correct dimensions.");
    return DataItem(IntervalVector::CreateFromVectorOfVectors(
        rows, IndexVector::TargetData(2, frame->width(), frame->height())));
}

constexpr KeyTable interval_verbs{std::to_array<Verb<IntervalVector>>({
    {"SetDimSizes", 1, SetDimSizes},
    {"ConvertFrom", 1, ConvertFromRows},
})};

} // namespace

DataItem IntervalVector::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (auto const* const row = interval_verbs.Find(verb); row && argc >= row->argument_count)
        return row->run(*this, argc, argv);
    for (char const* const of_limits : {"GetDimSize", "expr", "scalar"})
        // These speak of the elements, which scripts know as limits.
        if (EndArray_ && SameName(verb, of_limits))
            return PackedLimits(*this)->DoVerb(verb, argc, argv);
    return Vector::DoVerb(verb, argc, argv);
}

PMemBlock IntervalVector::ConvertTo(safestring const& classname) const
{
    if (classname == "image")
        return GetMaskImage();
    if (classname == "mask")
        return MergedIndexVector();
    if (EndArray_ && classname == "vector")
        return ContiguousForm(*this)->ConvertTo(classname);
    return IndexVector::ConvertTo(classname);
}

} // namespace NKelmic
