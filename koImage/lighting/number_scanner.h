// Numbers out of a text file, with the results of fscanf at a tenth of its time and in no locale. Private.
//
// What fscanf accepts is more than what strtod accepts, and what it has read when it fails stays read. The
// rules are those of the GNU C library, where they go beyond the standard:
//
//   - "1e", "1e+" and "0x." are numbers, 1, 1 and 0, though the standard says that their text ends too early;
//   - a sign, a point or "0x" without a digit fails after it; so does a word that begins like "nan" or
//     "infinity" but goes on otherwise, one character later.
#pragma once

#include <array>
#include <charconv>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace koImage {

class NumberScanner {
public:
    /// Reads `file` from where it stands, ahead of what is asked for.
    explicit NumberScanner(std::FILE* file) : file_(file), buffer_(bufferBytes + 1) {}

    /// White space in the C locale.
    void skipSpace()
    {
        while (isSpace(peek()))
            take();
    }

    /// As "%d", the value of which nobody wants: optional space, optional sign, digits.
    bool skipInt()
    {
        skipSpace();
        if (peek() == '+' || peek() == '-')
            take();
        bool const found = isDigit(peek());
        while (isDigit(peek()))
            take();
        return found;
    }

    /// As "%lf". Where it fails, `value` stays as it is.
    bool readDouble(double& value)
    {
        skipSpace();
        return readPlain(value) || readAny(value);
    }

    /// No text is left.
    bool atEnd() { return peek() == endOfFile; }

    /// The line of the next character, from 1.
    int line() const { return line_; }

private:
    static constexpr std::size_t bufferBytes = std::size_t{1} << 16;
    static constexpr int endOfFile = -1;

    static bool isSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static bool isDigit(int c) { return c >= '0' && c <= '9'; }

    int peek()
    {
        if (at_ == end_ && !ended_)
            refill();
        return at_ == end_ ? endOfFile : static_cast<unsigned char>(buffer_[at_]);
    }

    char take()
    {
        char const c = buffer_[at_++];
        line_ += c == '\n';
        return c;
    }

    // Keeps what has not been taken. The text in the buffer ends with a zero, which no number contains.
    void refill()
    {
        std::memmove(buffer_.data(), buffer_.data() + at_, end_ - at_);
        end_ -= at_;
        at_ = 0;
        std::size_t const wanted = bufferBytes - end_;
        std::size_t const got = std::fread(buffer_.data() + end_, 1, wanted, file_);
        end_ += got;
        ended_ = got < wanted;
        buffer_[end_] = '\0';
    }

    // --- The common case: digits with at most a point and an exponent, then space, all in the buffer ---

    bool readPlain(double& value)
    {
        constexpr std::size_t longest = 64;
        if (end_ - at_ < longest && !ended_)
            refill();

        char const* const start = buffer_.data() + at_;
        bool const negative = *start == '-';
        char const* const digits = start + (*start == '-' || *start == '+');
        char const* c = digits;

        // All digits as one integer; with more than 19 of them it wraps, and is not used.
        std::uint64_t number = 0;
        auto const readDigits = [&c, &number] {
            char const* const first = c;
            for (; isDigit(*c); ++c)
                number = number * 10 + static_cast<std::uint64_t>(*c - '0');
            return c - first;
        };
        auto const whole = readDigits();
        std::ptrdiff_t decimals = 0;
        if (*c == '.') {
            ++c;
            decimals = readDigits();
        }
        if (whole + decimals == 0)
            return false;

        double magnitude;
        if (isSpace(*c) && whole + decimals <= 19 && number < (std::uint64_t{1} << 53)) {
            // Both are exact, so that the quotient is the double nearest to the text.
            magnitude = static_cast<double>(number) / powersOfTen[static_cast<std::size_t>(decimals)];
        } else {
            auto const [last, error] = std::from_chars(digits, buffer_.data() + end_, magnitude);
            if (error != std::errc() || !isSpace(*last))
                return false;
            c = last;
        }
        value = negative ? -magnitude : magnitude;
        at_ = static_cast<std::size_t>(c - buffer_.data());
        return true;
    }

    static constexpr std::array<double, 20> powersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,
                                                           1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13,
                                                           1e14, 1e15, 1e16, 1e17, 1e18, 1e19};

    // --- Everything else ---

    bool readAny(double& value)
    {
        text_.clear();
        if (peek() == '+' || peek() == '-')
            text_ += take();
        switch (lower(peek())) {
        case 'n':
            return takeWord("nan") && convert(value);
        case 'i':
            return takeInfinity() && convert(value);
        default:
            return takeNumber() && convert(value);
        }
    }

    static int lower(int c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; }
    static bool isHexDigit(int c) { return isDigit(c) || (lower(c) >= 'a' && lower(c) <= 'f'); }

    // The character that does not belong to the word is taken, too.
    bool takeWord(std::string_view word)
    {
        for (char const expected : word) {
            if (atEnd())
                return false;
            char const c = take();
            text_ += c;
            if (lower(c) != expected)
                return false;
        }
        return true;
    }

    bool takeInfinity() { return takeWord("inf") && (lower(peek()) != 'i' || takeWord("inity")); }

    bool takeNumber()
    {
        std::size_t const sign = text_.size();
        bool hasDigit = false;
        bool hasPoint = false;
        bool hasExponent = false;
        bool isHex = false;
        if (peek() == '0') {
            text_ += take();
            isHex = lower(peek()) == 'x';
            if (isHex)
                text_ += take();
            hasDigit = !isHex;
        }
        char const exponent = isHex ? 'p' : 'e';

        for (;;) {
            int const c = peek();
            if (isDigit(c) || (isHex && !hasExponent && isHexDigit(c))) {
                hasDigit = true;
            } else if (hasExponent && lower(text_.back()) == exponent && (c == '+' || c == '-')) {
            } else if (hasDigit && !hasExponent && lower(c) == exponent) {
                hasExponent = hasPoint = true;
            } else if (!hasPoint && c == '.') {
                hasPoint = true;
            } else {
                break;
            }
            text_ += take();
        }
        return text_.size() > sign + (isHex ? 2 : 0);
    }

    // As much of the text as is a number. strtod knows what from_chars does not: hexadecimal digits after a
    // prefix, and what becomes of numbers that are too large or too small.
    bool convert(double& value) const
    {
        static locale_t const noLocale = newlocale(LC_ALL_MASK, "C", nullptr);
        char* last = nullptr;
        double const number = strtod_l(text_.c_str(), &last, noLocale);
        if (last == text_.c_str())
            return false;
        value = number;
        return true;
    }

    std::FILE* file_;
    std::vector<char> buffer_;
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    bool ended_ = false;
    int line_ = 1;
    std::string text_;  // of one number that is not plain
};

}  // namespace koImage
