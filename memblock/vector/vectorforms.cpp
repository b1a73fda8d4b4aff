#include <memblock/vector/vectorforms.h>

#include <memblock/base/text.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/core/serializer.h>
#include <memblock/serial/warning.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorforms_internal.h>

#include <algorithm>
#include <cstring>

namespace NKelmic {

namespace {

constexpr int default_precision = 6;

/// A failure is reported with the path of each level that it comes through, up to this many bytes:
/// far down the paths alone would fill the memory.
constexpr std::size_t longest_message = 1U << 16;

[[noreturn]] void RaiseNotSupported(int format, Vector const& v)
{
    Raise(err_request, "Serialization format %d not supported for: %s", format, v);
}

// ---- numbers as text

/// How a number is written, and the text around each.
struct NumberForm {
    int precision;
    bool as_float; ///< integers too, as "%g" does
    double factor;
    char const* nan_word;
    std::string_view before, behind;
};

template <class T>
void WriteNumbers(T const* data, unsigned long n, NumberForm const& form, safestring& output)
{
    // Decided once for the whole array: a factor makes floats of integers, too.
    PieceWriter writer(output);
    bool const as_float = FloatTypes::has<T> || form.as_float || form.factor != 1.0;
    for (unsigned long i = 0; i < n; ++i) {
        writer.Put(form.before);
        if (as_float)
            writer.PutFloat(static_cast<double>(data[i]) * form.factor, form.precision,
                            form.nan_word);
        else if constexpr (std::is_same_v<T, triple>)
            writer.PutInteger(static_cast<unsigned int>(data[i]));
        else if constexpr (IntegerTypes::has<T>)
            // The plus makes a number of a char, which is otherwise a character.
            writer.PutInteger(+data[i]);
        writer.Put(form.behind);
    }
    writer.Flush();
}

void WriteNumbers(Vector const& v, NumberForm const& form, safestring& output)
{
    WithElemType<NumericTypes>(
        v.ElemType(), "Function serialize1_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) { WriteNumbers(v.TypedPointer<T>(), v.Length(), form, output); });
}

int Precision(Formatter const& formatter)
{
    int const told = SafeValue(formatter.GetValue("precision", default_precision)).GetInt();
    return told < 0 ? default_precision : std::min(told, PieceWriter::most_digits);
}

// ---- elements that are objects or values

/// The state of one serialization.
struct SerializeState {
    int format;
    SerializeVisitor& visitor;
    safestring const& path;
    Formatter const& formatter;
};

/// The form of one element. A number or text has none of its own and is written as it is, if the
/// visitor does not see to it.
void WriteElement(Vector const& v, unsigned int i, SerializeState const& state, safestring& output)
{
    DataItem const item = v.GetDataItem(static_cast<int>(i));
    bool const object = item.GetType() == it_memblock || item.GetType() == it_sharable;
    if (object || state.visitor.DescendIntoScalars())
        state.visitor.Descend(item, state.format, state.path + ElementName(i), state.formatter,
                              output);
    else if (item.IsDefined())
        output += item.GetString();
}

void WriteElementsAsText(Vector const& v, SerializeState const& state, safestring& output)
{
    bool const single_line = state.formatter.GetFlag("single_line_per_elem", false);
    for (unsigned int i = 0; i < v.Length(); ++i) {
        // Aside, because an object may write many lines of its own.
        safestring text;
        WriteElement(v, i, state, text);
        if (single_line)
            text = Text("%u\t%s", i, OnOneLine(text));
        output += text;
        if (!text.empty() && text.back() != '\n')
            output += '\n';
    }
}

// ---- the forms

void WriteText(Vector const& v, SerializeState const& state, safestring& output)
{
    if (v.ElemType() == Vector::String) {
        int const mode = SafeValue(state.formatter.GetValue("quotemode", 0)).GetInt();
        PrintStrings(output, v.StringPointer(), v.Length(), '\n', mode);
    } else if (Vector::IsObject(v.ElemType())) {
        WriteElementsAsText(v, state, output);
    } else {
        WriteNumbers(v, {Precision(state.formatter), false, v.Factor(), "NaN", "", "\n"}, output);
    }
}

void WriteHtml(Vector const& v, SerializeState const& state, safestring& output)
{
    // HTML is for the eye: all numbers as floats with few digits, precision options do not apply.
    output += "<table>\n";
    if (!Vector::IsObject(v.ElemType())) {
        WriteNumbers(v, {default_precision, true, v.Factor(), "nan", "<tr><td>", "</td></tr>\n"},
                     output);
    } else {
        for (unsigned int i = 0; i < v.Length(); ++i) {
            safestring cell;
            if (v.ElemType() == Vector::String)
                cell = *v.StringPointer(i);
            else
                WriteElement(v, i, state, cell);
            DataItem const item = v.GetDataItem(static_cast<int>(i));
            if (item.GetType() != it_memblock && item.GetType() != it_sharable)
                HtmlQuote(cell, true); // an object has written HTML
            output += "<tr><td>" + cell + "</td></tr>\n";
        }
    }
    output += "</table>\n";
}

/// The bytes of the vectors of a vector, one behind the other.
safestring JoinedBytes(Vector const& v, SerializeState const& state)
{
    safestring bytes;
    for (unsigned int i = 0; i < v.Length(); ++i) {
        PMemBlock const& element = *v.PMemoryPointer(i);
        // Bytes without names or lengths: only a reader that knows the shape can part them again.
        if (!element.Conforms("vector"))
            Raise(err_value, "Data does not conform to \"%s\" class: %s", "vector", element);
        state.visitor.Descend(element, Formatter::ser_binary, state.path + ElementName(i),
                              state.formatter, bytes);
    }
    return bytes;
}

void WriteBinary(Vector const& v, SerializeState const& state, safestring& output)
{
    if (v.Factor() != 1.0)
        Warning(err_kind, Text("Raw factor %g cannot be merged in the binary output data; set "
                               ".factor to 1 to avoid this message.",
                               v.Factor()));
    if (v.ElemType() == Vector::PMemory) {
        safestring const bytes = JoinedBytes(v, state);
        EncodeBytes(bytes.data(), bytes.size(), state.format, output);
    } else {
        EncodeBytes(v.Pointer(), static_cast<unsigned long>(v.Length()) * v.ElemSize(),
                    state.format, output);
    }
}

/// The function that writes a form; null for one that this element type doesn't have.
auto FormOf(int format, DataType type)
    -> void (*)(Vector const&, SerializeState const&, safestring&)
{
    static_assert(type_count<ObjectTypes> == 3,
                  "of them only objects have bytes, those of vectors");
    switch (format) {
    case Formatter::ser_ascii:
        return WriteText;
    case Formatter::ser_html:
        return WriteHtml;
    case Formatter::ser_morvane:
        return [](Vector const& v, SerializeState const& state, safestring& output) {
            v.SerializeMorvane(state.visitor, state.path, state.formatter, output);
        };
    case Formatter::ser_binary:
    case form_gzip:
    case form_base64:
    case form_gzip_base64:
    case form_hexadecimal: // texts and values are held elsewhere: these bytes are addresses
        return type == Vector::String || type == Vector::PolyType ? nullptr : WriteBinary;
    default:
        return nullptr;
    }
}

void AppendHexa(unsigned char const* data, unsigned long size, safestring& output)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    // Written into its place: text that grew by two digits at a time would cost a test for each.
    unsigned long const start = output.size();
    output.resize(start + 2 * size);
    char* at = output.data() + start;
    for (unsigned long i = 0; i < size; ++i) {
        *at++ = digits[data[i] >> 4];
        *at++ = digits[data[i] & 15];
    }
}

} // namespace

safestring OnOneLine(safestring text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

template <class T>
void serialize1_tmpl(void const* data, int length, safestring& output)
{
    WriteNumbers(static_cast<T const*>(data), static_cast<unsigned long>(std::max(length, 0)),
                 {default_precision, false, 1.0, "NaN", "", "\n"}, output);
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template void serialize1_tmpl<T>(void const*, int, safestring&);
MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

void EncodeBytes(void const* data, unsigned long size, int format, safestring& output)
{
    switch (format) {
    case form_gzip:
        output += Encode_gzip(data, size);
        break;
    case form_base64:
        output += Encode_base64(data, size);
        break;
    case form_gzip_base64: {
        // Packed first: base64 leaves nothing that gzip could find.
        safestring const packed = Encode_gzip(data, size);
        output += Encode_base64(packed.data(), packed.size());
        break;
    }
    case form_hexadecimal:
        AppendHexa(static_cast<unsigned char const*>(data), size, output);
        break;
    default:
        output.append(static_cast<char const*>(data), size);
    }
}

void SerializeHexa(Vector const* vector, safestring& output)
{
    if (Vector::IsObject(vector->ElemType()))
        RaiseNotSupported(form_hexadecimal, *vector);
    EncodeBytes(vector->Pointer(),
                static_cast<unsigned long>(vector->Length()) * vector->ElemSize(), form_hexadecimal,
                output);
}

void Vector::DoSerialize(int format, SerializeVisitor& visitor, safestring const& path,
                         Formatter const& formatter, safestring& output) const
{
    if (auto const limits = PackedLimits(*this))
        return limits->Vector::DoSerialize(format, visitor, path, formatter, output);
    auto const write = FormOf(format, ElemType());
    if (!write)
        return MemBlock::DoSerialize(format, visitor, path, formatter, output);
    try {
        if (OnTheWay::Is(*this))
            Raise(err_state, "An object that holds itself cannot be serialized: %s", *this);
        // Objects within objects go as deep as somebody has nested them, beyond what a stack holds.
        OnTheWay const mark(*this);
        WithEnoughStack([&] { write(*this, {format, visitor, path, formatter}, output); });
    } catch (Exception const& e) {
        if (std::strlen(e.what()) > longest_message)
            throw;
        Raise(e.Code(), "Exception during serialization of (%s): %s", path, e.what());
    }
}

} // namespace NKelmic
