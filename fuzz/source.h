#ifndef MEMBLOCK_FUZZ_SOURCE_H
#define MEMBLOCK_FUZZ_SOURCE_H

#include <memblock/base/exception.h>
#include <memblock/base/safestring.h>

#include <iterator>
#include <new>
#include <string>

/// Run what may refuse its input in a stated way.
void Ignore(auto&& run)
{
    try {
        run();
    } catch (Ntarnwick::Exception const&) {
    } catch (std::bad_alloc const&) {
    } catch (char const*) {
        // the plain text that an element type without a size is refused with
    }
}

/// Reads one choice after the other from an input; 0 at its end.
class Source {
public:
    explicit Source(std::string const& input) : input_(input) {}
    bool AtEnd() const { return at_ >= input_.size(); }
    unsigned char Byte() { return AtEnd() ? 0 : static_cast<unsigned char>(input_[at_++]); }
    /// Mostly small; some are at the ends of what a number can be.
    int Number()
    {
        static constexpr int telling[] = {-1, 0x7FFFFFFF, -0x7FFFFFFF - 1, 1000, 65537, 2000000000};
        unsigned int const b = Byte();
        return b >= 250 ? telling[b - 250] : static_cast<int>(b % 16);
    }
    auto const& OneOf(auto const& list) { return std::data(list)[Byte() % std::size(list)]; }
    Ntarnwick::safestring Text()
    {
        Ntarnwick::safestring text;
        for (char c; !AtEnd() && (c = static_cast<char>(Byte())) != '\n';)
            text += c;
        return text;
    }

private:
    std::string const& input_;
    std::size_t at_ = 0;
};

#endif // MEMBLOCK_FUZZ_SOURCE_H
