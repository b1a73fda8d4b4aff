#ifndef MEMBLOCK_BASE_RAISE_H
#define MEMBLOCK_BASE_RAISE_H

#include <memblock/base/exception.h>
#include <memblock/base/printfer.h>

namespace Ntarnwick {

/// The codes that exceptions carry. They are bits: a code may be the sum of two rows.
enum error_code : unsigned int {
    err_notify = 2,          ///< a job of a pool failed
    err_resize = 16,         ///< a buffer could not be reallocated
    err_precondition = 32,   ///< a failed precondition of the call, such as a missing thing
    err_kind = 128,          ///< data of the wrong kind, an illegal cast, a bad sub-item
    err_state = 256,         ///< resource or state failures
    err_value = 512,         ///< a value that cannot be converted or does not conform
    err_request = 4096,      ///< internal or request errors: unknown keys, bad parameters
    err_request_kind = 4224, ///< err_request with err_kind
    err_request_value = 4608 ///< err_request with err_value
};

namespace detail {

/// Hand one argument to the format builder. A type that offers `TextArg(value)` by argument
/// dependent look-up (objects, pointers to objects) is described by it, anything else goes in as
/// it is.
template <class A>
void FeedArg(printfer& text, A const& arg)
{
    if constexpr (requires { TextArg(arg); })
        text(TextArg(arg));
    else
        text(arg);
}

} // namespace detail

/// Build a text from a format with one conversion an argument, see `printfer`.
template <class... Arg>
safestring Text(char const* format, Arg const&... arg)
{
    printfer text = printfer::Over(format);
    (detail::FeedArg(text, arg), ...);
    return text.Take();
}

/// Throw an `Exception` with the text built from format and arguments.
template <class... Arg>
[[noreturn]] void Raise(unsigned int code, char const* format, Arg const&... arg)
{
    throw Exception(code, Text(format, arg...), nullptr);
}

/// Report an `Exception` to the handler. No text is built for a handler that reads none.
///
/// Returns if the handler does; the caller then goes on with its failure value.
template <class... Arg>
void Report(ThrowHandlerFunc handler, unsigned int code, char const* format, Arg const&... arg)
{
    if (handler == ThrowHandlerFunc(throw_never)) // failed look-ups are frequent: no words
        return;
    bool const wordless = handler.DoVerb(ThrowHandlerBase::verb_only_fact);
    Throw(Exception(code, wordless ? safestring() : Text(format, arg...), nullptr), handler);
}

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_RAISE_H
