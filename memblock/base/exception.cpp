#include <memblock/base/exception.h>

#include <memblock/base/log_internal.h>
#include <memblock/base/raise.h>

namespace Ntarnwick {

Exception::Exception(unsigned int code, safestring const& message, void const* extra)
    : code_(code), message_(message), extra_(extra)
{
}

Exception::Exception(Exception const&) = default;
Exception::~Exception() noexcept = default;

char const* Exception::what() const noexcept
{
    return message_.c_str();
}
void Exception::Raise() const
{
    throw *this;
}

bool ThrowHandlerBase::DoVerb(verb_t)
{
    return false;
}

namespace {

// The stock handlers live without construction and destruction code, so that they work in any
// constructor and destructor of the host. The virtual destructor alone would be registered for the
// exit of the program; a constexpr object with an empty one is not.
struct ThrowAlways final : ThrowHandlerBase {
    unsigned int operator()(Exception const& e) override
    {
        if (LogEnabled(log_exception, 8))
            Log(log_exception, 8, Text("Exception (code %u): %s", e.Code(), e.what()));
        e.Raise();
        return e.Code();
    }
};

struct ThrowNever final : ThrowHandlerBase {
    unsigned int operator()(Exception const& e) override { return e.Code(); }
};

template <class T>
union NeverDestroyed {
    constexpr NeverDestroyed() : value() {}
    constexpr ~NeverDestroyed() {}
    mutable T value;
};

constexpr NeverDestroyed<ThrowAlways> stock_always;
constexpr NeverDestroyed<ThrowNever> stock_never;

} // namespace

constinit ThrowHandlerBase* const detail::stock_handlers[2] = {&stock_always.value,
                                                               &stock_never.value};

unsigned int CheckOk::operator()(Exception const& e)
{
    ok_ = false;
    return e.Code();
}

bool CheckOk::DoVerb(verb_t verb)
{
    return verb == verb_only_fact;
}

unsigned int Throw(Exception const& e, ThrowHandlerFunc handler)
{
    return handler(e);
}

void ThrowAssertException(char const* file, int line, char const* expression)
{
    Raise(err_request, "Assertion failed: %s, file %s, line %d", expression, file, line);
}

void detail::Throw(char const* message, char const* detail)
{
    Raise(err_value, "%s%s", message, detail);
}

} // namespace Ntarnwick
