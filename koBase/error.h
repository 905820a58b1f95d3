// What went wrong, for the few functions that report: a code and a sentence.
#pragma once

#include "koBase/export.h"

#include <string>

namespace koUtil {

/// An error, or none: a code of 0 means none, whatever the message says.
///
/// Copies and moves are values. An error made from a caller's error is nested, which is a different thing:
///
///     void load(char const* path, Error& error)
///     {
///         Error nested(error);   // begins with no error, whatever `error` holds
///         if (!open(path))
///             nested = Error(1, "%s cannot be opened.", path);
///     }                          // `error` holds it now; had all gone well, `error` would be as it was
///
///   lifetime   a nested error ends before the error that it was made from: keep it a local variable of the
///              scope that made it, and do not return it
///   link       belongs to the object: assigning to a nested error keeps it, copies and moved values do not
///              have it, and what has been moved out of a nested error is not passed on
///   notation   Error copy = error is a copy; Error nested(error) and Error nested{error} nest. So does what
///              initialises directly from an error that is not const: emplace_back(error), the capture
///              [error]
class KOBASE_EXPORT Error {
public:
    Error() = default;

    /// A message of any length, formatted as printf does. One that cannot be formatted is the format itself.
    [[gnu::format(printf, 3, 4)]] Error(int code, char const* format, ...);

    /// A nested error. Explicit, so that passing, returning and assigning errors never picks it.
    explicit Error(Error& caller) noexcept;  // NOLINT(google-explicit-constructor)

    Error(Error const& other);
    Error(Error&& other) noexcept;
    Error& operator=(Error other) noexcept;

    /// Passes an error that a nested one holds to the error that it was made from.
    ~Error();

    int code() const { return code_; }
    std::string const& message() const { return message_; }
    explicit operator bool() const { return code_ != 0; }

private:
    void take(Error& other) noexcept;

    int code_ = 0;
    std::string message_;
    Error* caller_ = nullptr;
};

}  // namespace koUtil
