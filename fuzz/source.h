#ifndef MEMBLOCK_FUZZ_SOURCE_H
#define MEMBLOCK_FUZZ_SOURCE_H

#include <memblock/core/safevalue.h>
#include <memblock/serial/warning.h>

#include <iterator>
#include <new>
#include <string>
#include <sys/resource.h>

#include "fuzz.h"

#ifdef __SANITIZE_ADDRESS__
extern "C" [[gnu::visibility("default")]] char const* __asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=16";
}
#endif

/// Be silent, and refuse sizes that a machine could hold all the same: to fill them takes too long.
inline void SetBounds()
{
    using namespace NKelmic;
    WarningFunc const silent = [](unsigned int, char const*) {};
    MemBlock_DoVerb("set_kelmicwarningfunc", SafeValue(DataItem(reinterpret_cast<void*>(silent))));
#ifndef __SANITIZE_ADDRESS__
    rlimit const limit{1UL << 27, 1UL << 27};
    setrlimit(RLIMIT_AS, &limit);
#endif
}

/// Run what may refuse its input, or ask for more memory than there is.
void Try(auto&& run)
{
    try {
        Ignore(run);
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
