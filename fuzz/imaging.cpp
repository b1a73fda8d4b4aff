// Images, cubes, lists of pixels, points and ranges: random keys, values and verbs, then everything
// that an object can be asked.

#include "fuzz.h"
#include "source.h"

#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/serial/serializer.h>

using namespace NKelmic;

namespace {

DataType AnyType(Source& source)
{
    auto const type = static_cast<DataType>(source.Byte() % 17);
    return IsInSet<AllTypes>(type) ? type : Vector::Byte; // what is no type is refused by a text
}

PMemBlock Make(Source& source)
{
    int const w = source.Number();
    int const h = source.Number();
    switch (source.Byte() % 6) {
    case 0:
        return Image::Create(static_cast<unsigned int>(w), static_cast<unsigned int>(h),
                             AnyType(source), 0.5);
    case 1:
        return DataCube::Create(w, h, source.Number(), AnyType(source), 2.0);
    case 2:
        return IndexVector::Create(static_cast<unsigned long>(source.Byte()),
                                   static_cast<unsigned int>(w), static_cast<unsigned int>(h));
    case 3:
        return Point::Create(w, h);
    case 4: // a long range is the script's own wish for much memory
        return NumRange::Create(w, std::min(w, 0x7FFFFF00) + source.Byte(), source.Byte() % 2);
    default: {
        auto numbers = Vector::Create(source.Byte() % 32, AnyType(source), false, 0, 1.0);
        for (unsigned int i = 0; i < numbers->Length(); ++i)
            Try([&] { numbers->SetElem(i, source.Number()); });
        return numbers;
    }
    }
}

DataItem Value(Source& source)
{
    switch (source.Byte() % 4) {
    case 0:
        return source.Number();
    case 1:
        return source.Number() * 0.37;
    case 2:
        return source.Text();
    default: {
        PMemBlock made;
        Try([&] { made = Make(source); });
        return made;
    }
    }
}

void Ask(MemBlock& object)
{
    auto const* vector = MemCast<Vector const>(&object);
    bool const is_long = vector && vector->Length() > 65536;
    safestring text; // a line for each missing object, which may be more than is allowed here
    Try([&] { object.Consistent(text, !is_long || !Vector::IsObject(vector->ElemType())); });
    object.GetDescription();
    for (char const* key :
         {"", "*", "image", "vector", "x", "y", "mask", "dims", "0", "1,1", "_0,0", "0,0,0",
          "@self.max", "itemcount", "edgewidth", "0..2", "@type"})
        Try([&] { object.GetSubItem(key, throw_always); });
    for (char const* words :
         {"clearedborders", "vector", "image,clearedborders", "8bpp", "24bpp,replicate", "16bpp"})
        for (char const* classname : {"", "image"})
            Try([&] {
                PMemBlock const result =
                    object.Convert(safestringlist(safestring(words), ','), classname, throw_always);
                result.GetDescription();
            });
    for (char const* verb : {"Transpose", "GetRank"})
        Try([&] { object.DoVerb(verb, 0, nullptr); });
    if (!vector || is_long)
        return; // a long text, and no other one
    for (int format : {1, 2, 7})
        Try([&] {
            SerializeVisitor visitor;
            Formatter formatter;
            safestring out;
            object.Serialize(format, visitor, "o", formatter, out);
        });
}

} // namespace

void FuzzOne(std::string const& input)
{
    [[maybe_unused]] static bool const bounded = (SetBounds(), true);
    Source source(input);
    PMemBlock object;
    Try([&] { object = Make(source); });
    if (!object)
        return;
    while (!source.AtEnd()) {
        safestring const key = source.Text();
        DataItem const value = Value(source);
        Try([&] { object->SetSubItem(key, value, throw_always); });
        Try([&] {
            SafeValue arguments[] = {source.Number(), source.Number(), source.Number()};
            object->DoVerb("SetDimSizes", source.Byte() % 4, arguments);
        });
        Try([&] {
            PMemBlock const other = Make(source);
            op_options options;
            object->op("+-*/&|=<!p"[source.Byte() % 10], other, options);
        });
        Try([&] {
            PMemBlock const other = Make(source);
            if (auto* vector = MemCast<Vector>(object))
                vector->Append(DerivedPointer<Vector>(other));
        });
    }
    Ask(*object);
}

std::vector<std::string> FuzzSeeds()
{
    using namespace std::string_literals;
    return {"\x03\x04\x00\x03type\n\x02stencil\n1,1\n\x00\x07"s,
            "\x03\x03\x00\x05type\n\x02mask\n1,1\n\x01\x07itemcount\n\x00\xFF"s,
            "\x02\x03\x01\x04\x05"
            "0\n\x03\x02\x03\x00\x05"s,
            "\x02\x03\x01\x04\x02"
            "1,2\n\x03\x00\x00\x05\x08\x01\x02\x03\x04"s,
            "\x05\x04\x02\x08target_rank\n\x00\x03target_dimsize1\n\x00\x09"s,
            "\x05\x04\x02\x09"
            "3\n\x00\xFBtarget_data\n\x03\x00\x00\x05\x02\x01\x02\x03"s,
            "\x05\x04\x03target_descr\n\x02here\nelemtype\n\x02"
            "double\n"s,
            "\x03\x09\x04\x10\x01"
            "exclusive\n\x00\x01length\n\x00\x01"s,
            "\x02\x02\x00\x0A"
            "0,0\n\x00\x05@insert:0\n\x00\x07"s,
            "\xFF\xFF\x00\x05"s,
            "\xFD\xFD\x01\x02\x03"s};
}
