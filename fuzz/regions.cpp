// Interval vectors, masks and stencils: structures built from each other in random order, by keys,
// verbs and operations, and after each step everything that one of them can be asked.

#include "fuzz.h"
#include "source.h"

#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/stencil.h>
#include <memblock/serial/serializer.h>

#include <array>
#include <random>

using namespace NKelmic;

namespace {

constexpr DataType element_types[] = {Vector::UnsignedInt, Vector::Int,    Vector::Byte,
                                      Vector::Double,      Vector::String, Vector::PolyType,
                                      Vector::PMemory,     Vector::Triple, Vector::UnsignedShort};
constexpr char const* set_keys[] = {"type",
                                    "inner_index_array",
                                    "inner_vector",
                                    "outer_index_array",
                                    "medium_index_array",
                                    "target",
                                    "indexvector_target",
                                    "target_data",
                                    "interval_count",
                                    "target_rank",
                                    "target_dimsize0",
                                    "length",
                                    "elemtype",
                                    "factor",
                                    "0",
                                    "3",
                                    "@insert:1",
                                    "exclusive"};
constexpr char const* words[] = {"stencil",       "subobj", "subnum", "datacubestencil",
                                 "vectorstencil", "mask",   "double", "numeric",
                                 "geometric",     "data",   "",       "unsigned,int"};
constexpr char const* asked_keys[] = {"!",      "*",         "area", "itemcount",  "mask",
                                      "target", "rawtarget", "x",    "y",          "image",
                                      "vector", "@md5",      "dims", "imagewidth", "imageheight",
                                      "0",      "@type",     "max",  "1..2"};

/// The objects that steps make and take: few, so that they meet again.
class Play {
public:
    explicit Play(std::string const& input) : source_(input) {}

    void Run()
    {
        while (!source_.AtEnd()) {
            Try([&] { Step(); });
            if (PMemBlock const object = Any())
                Ask(*object);
        }
        for (PMemBlock const& object : objects_)
            if (object)
                Ask(*object);
    }

private:
    PMemBlock& Any() { return objects_[source_.Byte() % objects_.size()]; }
    DerivedPointer<Vector> AnyVector() { return DerivedPointer<Vector>(MemCast<Vector>(Any())); }

    DerivedPointer<Vector> Numbers(DataType type)
    {
        auto numbers = Vector::Create(source_.Byte() % 8, type, true, 0, 1.0);
        for (unsigned int i = 0, ascending = 0; i < numbers->Length(); ++i) {
            int const number = source_.Number();
            ascending += static_cast<unsigned int>(number % 4);
            Try([&] { numbers->SetElem(i, i % 8 < 6 ? DataItem(ascending) : DataItem(number)); });
            // Deep copies: objects that hold themselves have no end.
            if (PMemBlock const held = type == Vector::PMemory ? Any() : PMemBlock())
                numbers->SetElem(i, held->Clone(false));
        }
        return numbers;
    }

    IndexVector::TargetData Shape()
    {
        auto const size = [&] { return static_cast<unsigned int>(source_.Number()); };
        switch (source_.Byte() % 4) {
        case 0:
            return IndexVector::TargetData(1, size());
        case 1:
            return IndexVector::TargetData(3, size(), size(), size());
        default:
            return IndexVector::TargetData(2, size(), size());
        }
    }

    PMemBlock Drawn()
    {
        auto const w = static_cast<unsigned int>(source_.Byte() % 8), h = source_.Byte() % 8u;
        auto image = Image::Create(w, h, source_.OneOf(element_types), 1.0);
        for (unsigned int i = 0; i < image->Length(); i += 3)
            Try([&] { image->SetElem(i, source_.Number()); });
        Try([&] { image->SetSubItem("type", source_.OneOf(words), throw_always); });
        return image;
    }

    /// Separate ends: in any order, overlapping, with gaps, or beyond the target.
    PMemBlock Parted()
    {
        unsigned int const n = source_.Byte() % 6;
        auto const limits = [&](unsigned int least) {
            auto* const cells = static_cast<unsigned int*>(mb_calloc(n + 1, sizeof(unsigned int)));
            for (unsigned int k = 0; k <= n; ++k)
                cells[k] = least + static_cast<unsigned int>(source_.Number()) % 9;
            return cells;
        };
        PMemBlock const target = Any();
        if (!MemCast<Vector>(target))
            return {};
        return IntervalVector::Create(n, source_.Byte() % 2, limits(0), limits(2), mb_free,
                                      DerivedPointer<Vector>(target));
    }

    PMemBlock Make()
    {
        switch (source_.Byte() % 10) {
        case 0:
            return Numbers(source_.OneOf(element_types));
        case 1:
        case 2:
            return IndexVector::Create(Numbers(Vector::UnsignedInt), Shape());
        case 3:
            return Drawn();
        case 4:
            return Parted();
        case 5:
            return Mask::Create(PMemBlock(Any()));
        case 6:
            return Stencil::Create(PMemBlock(Any()));
        case 7:
            return IntervalVector::CreateFromVectorOfVectors(Numbers(Vector::PMemory),
                                                             source_.OneOf(element_types));
        case 8:
            return IntervalVector::Create();
        default: {
            auto const limits = Numbers(Vector::UnsignedInt);
            auto const v = IntervalVector::Create(source_.Byte() % 4, AnyVector());
            Try([&] { v->SetSubItem("outer_index_array", SafeValue(limits), throw_always); });
            return v;
        }
        }
    }

    SafeValue Value()
    {
        switch (source_.Byte() % 4) {
        case 0:
            return SafeValue(source_.Number());
        case 1:
            return SafeValue(source_.OneOf(words));
        case 2:
            return SafeValue(Numbers(source_.OneOf(element_types)));
        default:
            return SafeValue(DataItem(Any()));
        }
    }

    void Step()
    {
        PMemBlock& object = Any();
        switch (source_.Byte() % 8) {
        case 0:
        case 1:
            object = Make();
            return;
        case 2:
        case 3:
            if (Vector const* const v = MemCast<Vector>(object);
                v && (v->ElemType() == Vector::PMemory || v->ElemType() == Vector::PolyType))
                return; // it might be made to hold itself
            if (object)
                object->SetSubItem(source_.OneOf(set_keys), Value(), throw_always);
            return;
        case 4:
            if (object) {
                SafeValue arguments[] = {Value(), Value(), Value()};
                char const* const verbs[] = {"SetDimSizes", "ConvertFrom", "Transpose"};
                Any() =
                    object->DoVerb(source_.OneOf(verbs), source_.Byte() % 4, arguments).GetMemory();
            }
            return;
        case 5:
            if (PMemBlock const left = object)
                Any() = left->op("&|^!p+-=<#"[source_.Byte() % 10], Any(), op_options());
            return;
        case 6:
            if (object) {
                char const* const forms[] = {"", "image", "vector", "representation=mask"};
                safestring const arguments = source_.OneOf(forms);
                Any() = object->Convert(safestringlist(arguments, ','), source_.OneOf(words),
                                        throw_always);
            }
            return;
        default:
            if (DerivedPointer<IntervalVector> const v{MemCast<IntervalVector>(object)})
                Change(v);
            else if (PMemBlock const other = object)
                Any() = other->Clone(source_.Byte() % 2);
        }
    }

    void Change(DerivedPointer<IntervalVector> const& v)
    {
        switch (source_.Byte() % 10) {
        case 0:
            return v->AddEndArray();
        case 1:
            return v->Append(AnyVector());
        case 2: {
            int const order[] = {source_.Number(), source_.Number(), source_.Number()};
            return v->Rearrange(order, source_.Byte() % 4, source_.Byte() % 8, throw_always);
        }
        case 3: {
            unsigned short* owners = nullptr;
            v->Reformat(source_.Byte() % 2, source_.Byte() % 2 ? &owners : nullptr);
            return mb_free(owners);
        }
        case 4:
            return v->ResizeVector(source_.Byte() % 8, true, true);
        case 5:
            Any() = v->CloneSlice(source_.Byte() % 6, source_.Byte() % 6);
            return;
        case 6:
            Any() = IntervalVector::CreateBySample(v, AnyVector());
            return;
        case 7:
            Any() = PrepareMatrixes_f(AnyVector(), v);
            return;
        case 8:
            Any() = intervalvector_to_pmemory_vector(v);
            return;
        default:
            Any() = pmemory_vector_to_intervalvector(AnyVector());
        }
    }

    void Ask(MemBlock const& object)
    {
        safestring text;
        Try([&] { object.Consistent(text, true); });
        object.GetDescription();
        Try([&] { object.GetSubItem(source_.OneOf(asked_keys), throw_always).GetDescription(); });
        if (IntervalVector const* const v = dynamic_cast<IntervalVector const*>(&object)) {
            unsigned int const *inner, *medium, *outer;
            DerivedPointer<IntervalVector> const self(v);
            Try([&] { unpack_three_layer_const(self, inner, medium, outer); });
        }
        Try([&] { (void)(object == *object.Clone(source_.Byte() % 2)); });
        Try([&] {
            SerializeVisitor visitor;
            Formatter formatter;
            constexpr int formats[] = {1, 2, 7};
            object.Serialize(source_.OneOf(formats), visitor, "o", formatter, text);
        });
    }

    Source source_;
    std::array<PMemBlock, 5> objects_;
};

} // namespace

void FuzzOne(std::string const& input)
{
    [[maybe_unused]] static bool const bounded = (SetBounds(), true);
    Play(input).Run();
}

std::vector<std::string> FuzzSeeds()
{
    std::mt19937 random(1); // any input is well formed: it is a list of choices
    std::vector<std::string> seeds(500);
    for (std::string& seed : seeds)
        for (unsigned int n = 40 + random() % 160; n > 0; --n)
            seed += static_cast<char>(random());
    return seeds;
}
