#include "koBase/error.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace koUtil {

namespace {

std::string formatted(char const* format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    int const length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return format;

    // A string has room for the terminating zero behind its last character.
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

}  // namespace

Error::Error(int code, char const* format, ...) : code_(code)
{
    std::va_list arguments;
    va_start(arguments, format);
    message_ = formatted(format, arguments);
    va_end(arguments);
}

Error::Error(Error& caller) noexcept : caller_(&caller) {}

Error::Error(Error const& other) : code_(other.code_), message_(other.message_) {}

Error::Error(Error&& other) noexcept
{
    take(other);
}

Error& Error::operator=(Error other) noexcept
{
    // Not a swap: `other` may be nested, as in a = Error(b), and would pass the old error of `a` on to `b`.
    take(other);
    return *this;
}

Error::~Error()
{
    if (caller_ != nullptr && *this)
        caller_->take(*this);
}

void Error::take(Error& other) noexcept
{
    code_ = std::exchange(other.code_, 0);
    message_ = std::exchange(other.message_, {});
}

}  // namespace koUtil
