#ifndef MEMBLOCK_VECTOR_VECTORFORMS_INTERNAL_H
#define MEMBLOCK_VECTOR_VECTORFORMS_INTERNAL_H

#include <memblock/vector/vector.h>

#include <charconv>
#include <cmath>
#include <string_view>

namespace NKelmic {

/// Marks a vector while this thread goes down through its elements, to write them or on behalf of a
/// visitor: one that holds itself, however far down, would be gone through for ever.
class OnTheWay {
public:
    explicit OnTheWay(Vector const& v, void const* visitor = nullptr)
        : vector_(&v), visitor_(visitor), outer_(top_)
    {
        top_ = this;
    }
    ~OnTheWay() { top_ = outer_; }
    OnTheWay(OnTheWay const&) = delete;
    OnTheWay& operator=(OnTheWay const&) = delete;
    static bool Is(Vector const& v, void const* visitor = nullptr);

private:
    static thread_local OnTheWay* top_;
    Vector const* vector_;
    void const* visitor_;
    OnTheWay* outer_;
};

/// The expressions of the cooked elements, with commas between them.
safestring ElementExpressions(Vector const& v);
/// The text by which a macro makes the vector: "vec(", the elements, ")".
safestring VectorExpression(Vector const& v);

/// "[index]", the name of an element in a path.
safestring ElementName(unsigned int i);
/// The text with blanks for its line ends; those at the end go.
safestring OnOneLine(safestring text);

/// Encodings of the binary form, by the numbers that files and scripts know.
enum { form_gzip = 10, form_base64 = 11, form_gzip_base64 = 12, form_hexadecimal = 13 };

/// Append the bytes of plain elements in one of the encodings, or as they are for 1, the binary
/// form. The factor is left aside.
void EncodeBytes(void const* data, unsigned long size, int format, safestring& output);

/// Collects small pieces of text, so that the output grows by blocks. `Flush` comes last.
class PieceWriter {
public:
    explicit PieceWriter(safestring& output) : output_(output) {}
    PieceWriter(PieceWriter const&) = delete;
    PieceWriter& operator=(PieceWriter const&) = delete;

    void Put(std::string_view text)
    {
        if (text.size() > Room()) {
            Flush();
            if (text.size() > sizeof buffer_) {
                output_.append(text.data(), text.size());
                return;
            }
        }
        text.copy(at_, text.size());
        at_ += text.size();
    }

    /// A whole number in decimal.
    template <class T>
    void PutInteger(T value)
    {
        MakeRoom(24);
        at_ = std::to_chars(at_, End(), value).ptr;
    }

    /// A number as "%.*g" prints it, with the words for what is none.
    void PutFloat(double value, int precision, char const* nan_word)
    {
        if (!std::isfinite(value))
            return Put(std::isnan(value) ? nan_word : value > 0 ? "inf" : "-inf");
        MakeRoom(longest_double);
        at_ = std::to_chars(at_, End(), value, std::chars_format::general, precision).ptr;
    }

    /// The shortest text that reads back as the same number.
    template <class T>
    void PutShortest(T value)
    {
        if (!std::isfinite(value))
            return PutFloat(static_cast<double>(value), 1, "nan");
        MakeRoom(32);
        at_ = std::to_chars(at_, End(), value).ptr;
    }

    void Flush()
    {
        output_.append(buffer_, static_cast<std::size_t>(at_ - buffer_));
        at_ = buffer_;
    }

    /// No double has more significant digits, so a greater precision changes nothing.
    static constexpr int most_digits = 800;

private:
    static constexpr std::size_t longest_double = most_digits + 350;

    char const* Limit() const { return buffer_ + sizeof buffer_; }
    char* End() { return buffer_ + sizeof buffer_; }
    std::size_t Room() const { return static_cast<std::size_t>(Limit() - at_); }
    void MakeRoom(std::size_t n)
    {
        if (Room() < n)
            Flush();
    }

    safestring& output_;
    char buffer_[8192];
    char* at_ = buffer_;
};

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_VECTORFORMS_INTERNAL_H
