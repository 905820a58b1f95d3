// The bytes of a file from front to back, and the numbers in its text. Private to koImageIO.
//
// Readers ask how much is left before they take; an error names the place that they have come to.
#pragma once

#include "koImageIO/codec.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace koImageIO {

/// The number that a text is from its first character to its last, or none.
template <class Number>
std::optional<Number> numberOf(std::string_view text)
{
    Number number{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// Refers to the bytes and to the name; it keeps neither.
class FileCursor {
public:
    FileCursor(std::span<std::byte const> file, std::string const& name)
        : first_(reinterpret_cast<unsigned char const*>(file.data())),
          next_(first_),
          end_(first_ + file.size()),
          name_(name)
    {
    }

    std::size_t position() const { return static_cast<std::size_t>(next_ - first_); }
    std::size_t left() const { return static_cast<std::size_t>(end_ - next_); }

    /// What is left, as text.
    std::string_view rest() const { return {reinterpret_cast<char const*>(next_), left()}; }

    /// The next bytes. There are as many left: the caller's duty.
    unsigned char const* take(std::size_t count)
    {
        unsigned char const* const bytes = next_;
        next_ += count;
        return bytes;
    }

    /// The text up to the end of the line, which is passed, or of the file. Without a carriage return.
    std::string_view takeLine()
    {
        textStart_ = position();
        std::string_view const text = rest();
        std::size_t const length = std::min(text.find('\n'), text.size());
        take(std::min(length + 1, text.size()));
        std::string_view const line = text.substr(0, length);
        return line.ends_with('\r') ? line.substr(0, length - 1) : line;
    }

    /// The next word: what stands between white space and comments, which go from # to the end of the line.
    /// Empty at the end of the file.
    std::string_view takeWord()
    {
        skipSpace();
        while (rest().starts_with('#')) {
            takeLine();
            skipSpace();
        }
        textStart_ = position();
        std::string_view const word = rest().substr(0, rest().find_first_of("# \t\n\v\f\r"));
        take(word.size());
        return word;
    }

    /// The error of the next byte.
    koUtil::Error error(std::string const& reason) const { return errorAt(name_, position(), reason); }

    /// The error of the line or word taken last.
    koUtil::Error errorOfText(std::string const& reason) const { return errorAt(name_, textStart_, reason); }

private:
    void skipSpace() { take(std::min(rest().find_first_not_of(" \t\n\v\f\r"), left())); }

    unsigned char const* first_;
    unsigned char const* next_;
    unsigned char const* end_;
    std::size_t textStart_ = 0;
    std::string const& name_;
};

}  // namespace koImageIO
