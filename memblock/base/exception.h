#ifndef MEMBLOCK_BASE_EXCEPTION_H
#define MEMBLOCK_BASE_EXCEPTION_H

#include <memblock/base/safestring.h>

#include <exception>

namespace Ntarnwick {

/// A failure with a numeric code and a text. The names of the codes are in raise.h.
class MEMBLOCK_API Exception : public std::exception {
public:
    /// `extra` is between the code that throws and the code that catches; the exception does not
    /// own what it points to.
    Exception(unsigned int code, safestring const& message, void const* extra = nullptr);
    Exception(Exception const&);
    ~Exception() noexcept override;

    char const* what() const noexcept override;
    unsigned int Code() const { return code_; }
    void const* Extra() const { return extra_; }

    /// Throw a copy of this object. Derived classes override it, so that code with a reference
    /// to the base throws the whole object.
    virtual void Raise() const;

private:
    unsigned int code_;
    safestring message_;
    void const* extra_;
};

/// Receives failures. If the call returns, the operation that failed goes on with its
/// failure result: undefined, 0, null or false.
class MEMBLOCK_API ThrowHandlerBase {
public:
    enum verb_t {
        verb_create_missing = 1, ///< are missing steps of a path to be made?
        verb_only_fact = 2,      ///< is only the failure of interest, and not its words?
        verb_no_backcompat = 3   ///< are the key names of earlier versions switched off?
    };

    /// Take a failure; returns its code.
    virtual unsigned int operator()(Exception const& e) = 0;
    constexpr virtual ~ThrowHandlerBase() =
        default; // constexpr: the stock handlers need no exit code
    /// Answer one of the questions above; false in the base.
    virtual bool DoVerb(verb_t verb);
};

namespace detail {
/// The handlers of `throw_always` and of `throw_never`: one of each for all libraries.
MEMBLOCK_API extern ThrowHandlerBase* const stock_handlers[2];
} // namespace detail

enum ThrowHandlerFunc_Constant {
    throw_always = 0, ///< throws the failure
    throw_never = 1   ///< ignores it
};

/// Handle of a failure handler, passed by value: one bare pointer. The handler has to outlive the
/// call that it is passed to, so make it a named local.
///
/// Two handles are equal if they hold the same handler. Before it builds a costly message, an
/// operation compares its handle with `ThrowHandlerFunc(throw_never)`.
class MEMBLOCK_API ThrowHandlerFunc {
public:
    ThrowHandlerFunc(ThrowHandlerFunc_Constant c)
        : handler_(detail::stock_handlers[c == throw_never ? 1 : 0])
    {
    }
    ThrowHandlerFunc(ThrowHandlerBase& handler) : handler_(&handler) {}

    unsigned int operator()(Exception const& e) const { return (*handler_)(e); }
    bool DoVerb(ThrowHandlerBase::verb_t verb) const { return handler_->DoVerb(verb); }
    bool operator==(ThrowHandlerFunc const& o) const { return handler_ == o.handler_; }
    bool operator!=(ThrowHandlerFunc const& o) const { return handler_ != o.handler_; }

private:
    ThrowHandlerBase* handler_;
};

/// Handler that writes false into a bool at a failure, which costs no text. It does not set the
/// bool to true.
class MEMBLOCK_API CheckOk : public ThrowHandlerBase {
public:
    explicit CheckOk(bool& ok) : ok_(ok) {}
    unsigned int operator()(Exception const& e) override;
    bool DoVerb(verb_t verb) override; ///< true for `verb_only_fact` only

private:
    bool& ok_;
};

/// Deliver a failure to a handler; returns what the handler returns, the code as a rule.
MEMBLOCK_API unsigned int Throw(Exception const& e, ThrowHandlerFunc handler);

/// Throw the `Exception` of a failed assertion: code 4096, "Assertion failed: " with expression,
/// file and line.
[[noreturn]] MEMBLOCK_API void ThrowAssertException(char const* file, int line,
                                                    char const* expression);

namespace detail {
/// Throw an `Exception` of code 512 with both texts joined.
[[noreturn]] MEMBLOCK_API void Throw(char const* message, char const* detail);
} // namespace detail

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_EXCEPTION_H
