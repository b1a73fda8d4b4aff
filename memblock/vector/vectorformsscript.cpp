#include <memblock/base/appendwhole_internal.h>
#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/core/serializer.h>
#include <memblock/vector/vectorforms.h>
#include <memblock/vector/vectorforms_internal.h>

namespace NKelmic {

namespace {

constexpr int default_blob_threshold = 32;

int IntOption(Formatter const& formatter, char const* name, int def)
{
    return SafeValue(formatter.GetValue(name, def)).GetInt();
}

safestring NewName(SerializeVisitor& visitor)
{
    safestring const& prefix = visitor.name_prefix_;
    return (prefix.empty() ? safestring("tmp") : prefix) + str(visitor.counter_++);
}

/// A statement that makes a variable needs a plain name: elsewhere a temporary one is made, which
/// goes to its place at the end.
class Target {
public:
    Target(SerializeVisitor& visitor, safestring const& place)
        : place_(place), name_(is_alphanumeric(place) ? place : NewName(visitor))
    {
    }
    safestring const& Name() const { return name_; }
    void MoveToPlace(safestring& output) const
    {
        if (name_ != place_)
            output += Text("Set(%s=%s)\nDelete(%s)\n", place_, name_, name_);
    }

private:
    safestring place_, name_;
};

/// The raw numbers, each with as many digits as it takes to read the same number back.
template <class T>
void WriteRaw(T const* data, unsigned int n, safestring& output)
{
    PieceWriter writer(output);
    for (unsigned int i = 0; i < n; ++i) {
        if (i > 0)
            writer.Put(",");
        if constexpr (FloatTypes::has<T>)
            writer.PutShortest(data[i]);
        else if constexpr (std::is_same_v<T, triple>)
            writer.PutInteger(static_cast<unsigned int>(data[i]));
        else
            writer.PutInteger(+data[i]);
    }
    writer.Flush();
}

void WriteRaw(Vector const& v, safestring& output)
{
    WithElemType<NumericTypes>(
        v.ElemType(), "Function serialize1_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) { WriteRaw(v.TypedPointer<T>(), v.Length(), output); });
}

/// Tell if a list of these numbers in a macro makes the vector as it is. It makes signed integers
/// of four bytes, or doubles if one of them is written as such.
bool IsMadeByList(Vector const& v, safestring const& numbers)
{
    // The macro takes a list for whole numbers unless one of them looks like a fraction.
    if (v.ElemType() == Vector::Double)
        return numbers.find_first_of(".en") != safestring::npos; // of "1e+20", "inf" and "nan"
    return v.ElemType() == Vector::Int;
}

void WriteConversion(Vector const& v, safestring const& name, safestring& output)
{
    bool const floating = IsInSet<FloatTypes>(v.ElemType());
    bool const is_signed = floating || IsInSet<SignedTypes>(v.ElemType());
    output += Text("ConvElems(%s,\"%s\",%d,\"%s\")\n", name, floating ? "floating" : "integral",
                   v.ElemSize(), is_signed ? "signed" : "unsigned");
}

void WriteBlob(Vector const& v, int frm, SerializeVisitor& visitor, safestring const& name,
               safestring& output)
{
    if (frm == Formatter::ser_morvane)
        ThrowAssertException(__FILE__, __LINE__, "frm!=Formatter::ser_morvane");
    if (frm != form_gzip_base64 && frm != form_hexadecimal)
        Raise(err_kind, "Morvane script dump not supported for blob format: %d", frm);
    safestring const blob = NewName(visitor);
    output += frm == form_hexadecimal ? "Decode(\"hexadecimal\", \"" : "Decode(\"base64\", \"";
    // The bytes are raw: the factor follows as a statement of its own.
    EncodeBytes(v.Pointer(), static_cast<unsigned long>(v.Length()) * v.ElemSize(), frm, output);
    if (frm == form_hexadecimal)
        output += Text("\"|%s=decoded)\n", blob);
    else
        output += Text("\"|%s=decoded)\nDecode(\"gzip\", %s|%s=decoded)\n", blob, blob, blob);
    output += Text("ReadVector(\"%s\",\"<%s\",\"raw\",\"%s\")\nDelete(%s)", name, blob,
                   TypeToString(v.ElemType()), blob);
    output += '\n';
}

void WriteFactor(Vector const& v, safestring const& name, safestring& output)
{
    if (v.Factor() != 1.0)
        // A product, not an assignment: the conversion before it may have left a factor.
        output += Text("set(%s.factor=%s.factor*%.16g)\n", name, name, v.Factor());
}

void WriteInline(Vector const& v, SerializeVisitor& visitor, safestring const& place,
                 safestring& output)
{
    safestring numbers;
    WriteRaw(v, numbers);
    if (IsMadeByList(v, numbers)) { // one statement, good for any place
        output += "set(" + place + "=vec(" + numbers + "))\n";
        return WriteFactor(v, place, output);
    }
    Target const target(visitor, place);
    output += "set(" + target.Name() + "=vec(" + numbers + "))\n";
    WriteConversion(v, target.Name(), output);
    WriteFactor(v, target.Name(), output);
    target.MoveToPlace(output);
}

void WriteNumbers(Vector const& v, SerializeVisitor& visitor, safestring const& place,
                  Formatter const& formatter, safestring& output)
{
    int const threshold = IntOption(formatter, "blob_threshold", default_blob_threshold);
    int const frm = IntOption(formatter, "bin_fmt", form_gzip_base64);
    // A list of numbers stays readable; a long one would be slow to parse.
    bool const short_form =
        static_cast<long>(v.Length()) <= threshold || frm == Formatter::ser_ascii;
    if (short_form)
        return WriteInline(v, visitor, place, output);
    Target const target(visitor, place);
    WriteBlob(v, frm, visitor, target.Name(), output);
    WriteFactor(v, target.Name(), output);
    target.MoveToPlace(output);
}

void OutputStringVector(Vector const& v, safestring const& name, safestring& output)
{
    output += "set(" + name + "=vec(";
    for (unsigned int i = 0; i < v.Length(); ++i) {
        // Quoted in a copy: the element itself must not change.
        safestring text = *v.StringPointer(i);
        ApplyAsciiQuoting(text);
        output += i > 0 ? ",\"" : "\"";
        output += text;
        output += '"';
    }
    output += "))\n";
}

/// Objects write themselves to the place of their element; a null object or an undefined value is
/// what the new vector holds there already.
void WriteElements(Vector const& v, SerializeVisitor& visitor, safestring const& place,
                   Formatter const& formatter, safestring& output)
{
    Target const target(visitor, place);
    safestring const& name = target.Name();
    output += Text("Create(\"vector\",%d,%d|%s=vector)\n", v.Length(),
                   static_cast<int>(v.ElemType()), name);
    for (unsigned int i = 0; i < v.Length(); ++i) {
        DataItem const item = v.GetDataItem(static_cast<int>(i));
        bool const object = item.GetType() == it_memblock || item.GetType() == it_sharable;
        if (object)
            visitor.Descend(item, Formatter::ser_morvane, name + ElementName(i), formatter, output);
        // 17 digits: a double read back is then the same to the bit.
        else if (item.IsDefined())
            output += Text("set(%s[%d]=%s)\n", name, i, item.GetExpression(17));
    }
    target.MoveToPlace(output);
}

} // namespace

void Vector::SerializeMorvane(SerializeVisitor& visitor, safestring const& name,
                              Formatter const& formatter, safestring& output) const
{
    AppendWhole(output, [&] {
        if (ElemType() == String)
            OutputStringVector(*this, name, output);
        else if (IsObject(ElemType()))
            WriteElements(*this, visitor, name, formatter, output);
        else if (ElemType() == VoidStar) // addresses mean nothing elsewhere
            MemBlock::DoSerialize(Formatter::ser_morvane, visitor, name, formatter, output);
        else
            WriteNumbers(*this, visitor, name, formatter, output);
    });
}

} // namespace NKelmic
