// Numbers out of a text file, with the results of fscanf at an eighth of its time and in no locale. Private.
//
// What fscanf accepts is more than what strtod accepts, and what it has read when it fails stays read. The
// rules are those of the GNU C library, where they go beyond the standard:
//
//   - "1e", "1e+" and "0x." are numbers, 1, 1 and 0, though the standard says that their text ends too early;
//   - a sign, a point or "0x" without a digit fails after it; so does a word that begins like "nan" or
//     "infinity" but goes on otherwise, one character later.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace koImage {

class NumberScanner {
public:
    /// Reads `file` from where it stands, ahead of what is asked for.
    explicit NumberScanner(std::FILE* file) : file_(file) { endText(); }

    /// White space in the C locale.
    void skipSpace()
    {
        do {
            while (isSpace(buffer_[at_]))
                ++at_;
        } while (isSpace(peek()));
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
        if (end_ - at_ < longestPlain && !ended_)
            refill();
        char const* const after = readPlain(buffer_.get() + at_, value);
        if (after == nullptr)
            return readAny(value);
        at_ = static_cast<std::size_t>(after - buffer_.get());
        return true;
    }

    /// As `count` times "%lf", to values[0], values[stride], ...; faster than one by one.
    void readDoubles(double* values, std::ptrdiff_t stride, int count)
    {
        skipSpace();
        for (; count > 0; --count, values += stride) {
            // Plain numbers, while the buffer surely holds a whole one.
            char const* text = buffer_.get() + at_;
            char const* const last = buffer_.get() + end_ - std::min(end_, longestPlain);
            for (; count > 0 && text < last; --count, values += stride) {
                char const* const after = readPlain(text, *values);
                if (after == nullptr)
                    break;
                for (text = after + 1; isSpace(*text);)
                    ++text;
            }
            at_ = static_cast<std::size_t>(text - buffer_.get());
            if (count == 0)
                return;
            readDouble(*values);
        }
    }

    /// No text is left.
    bool atEnd() { return peek() == endOfFile; }

    /// How many characters have been taken.
    std::size_t taken() const { return takenBefore_ + at_; }

private:
    static constexpr std::size_t bufferBytes = std::size_t{1} << 16;
    static constexpr std::size_t longestPlain = 64;
    static constexpr int endOfFile = -1;

    static bool isSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static bool isDigit(int c) { return c >= '0' && c <= '9'; }

    int peek()
    {
        if (at_ == end_ && !ended_)
            refill();
        return at_ == end_ ? endOfFile : static_cast<unsigned char>(buffer_[at_]);
    }

    char take() { return buffer_[at_++]; }

    // Keeps what has not been taken. The text in the buffer ends with zeros, which no number contains.
    void refill()
    {
        takenBefore_ += at_;
        std::memmove(buffer_.get(), buffer_.get() + at_, end_ - at_);
        end_ -= at_;
        at_ = 0;
        std::size_t const wanted = bufferBytes - end_;
        std::size_t const got = std::fread(buffer_.get() + end_, 1, wanted, file_);
        end_ += got;
        ended_ = got < wanted;
        endText();
    }

    // As many as are read without a look at where the text ends.
    void endText() { std::memset(buffer_.get() + end_, 0, longestPlain); }

    // --- The common case: a digit, a point, decimals, then space, all in the buffer ---

    /// Where the number ends, or null if it is not of that kind.
    char const* readPlain(char const* text, double& value) const
    {
        bool const negative = *text == '-';
        text += negative;
        if (!isDigit(*text))
            return nullptr;

        // All digits as one integer.
        char const* const start = text;
        auto number = static_cast<std::uint64_t>(*text++ - '0');
        std::size_t decimals = 0;
        bool fits = true;
        if (*text == '.') {
            ++text;
            Digits digits(text);
            while (digits.count() == 8 && decimals < 16) {
                number = number * 100000000 + digits.value();
                decimals += 8;
                text += 8;
                digits = Digits(text);
            }
            fits = decimals < 16 || digits.count() <= 2 || number < 100000000000;
            number = number * digits.scale() + digits.value();
            decimals += digits.count();
            text += digits.count();
        }

        double magnitude;
        if (!fits || !isSpace(*text) || !divide(number, decimals, magnitude)) {
            auto const [last, error] = std::from_chars(start, buffer_.get() + end_, magnitude);
            if (error != std::errc() || !isSpace(*last))
                return nullptr;
            text = last;
        }
        // Not by a branch: signs are as good as random.
        value =
            std::bit_cast<double>(std::bit_cast<std::uint64_t>(magnitude) | std::uint64_t{negative} << 63);
        return text;
    }

    /// Up to eight digits, found and read without a branch on how many there are.
    class Digits {
    public:
        /// Eight characters can be read there.
        explicit Digits(char const* text)
        {
            std::uint64_t characters;
            std::memcpy(&characters, text, sizeof characters);
            if constexpr (std::endian::native == std::endian::big)
                characters = __builtin_bswap64(characters);

            // The high bit of the first byte that is not '0' to '9'.
            std::uint64_t const others =
                ((characters + 0x4646464646464646) | (characters - zeros)) & 0x8080808080808080;
            count_ = static_cast<std::size_t>(std::countr_zero(others)) / 8;

            // As the last digits of eight; then neighbours are joined: two, four, eight.
            std::uint64_t digits = count_ == 0 ? 0 : (characters - zeros) << (64 - 8 * count_);
            digits = digits * 10 + (digits >> 8);
            value_ = (((digits & 0x000000FF000000FF) * (100 + (std::uint64_t{1000000} << 32))) +
                      (((digits >> 16) & 0x000000FF000000FF) * (1 + (std::uint64_t{10000} << 32)))) >>
                     32;
        }

        std::size_t count() const { return count_; }
        std::uint64_t value() const { return value_; }

        /// 10 to the power of their count.
        std::uint64_t scale() const
        {
            static constexpr std::array<std::uint64_t, 9> powers = {
                1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
            return powers[count_];
        }

    private:
        static constexpr std::uint64_t zeros = 0x3030303030303030;

        std::size_t count_;
        std::uint64_t value_;
    };

    /// The double nearest to number / 10^decimals, where that is easily found.
    static bool divide(std::uint64_t number, std::size_t decimals, double& quotient)
    {
        static constexpr std::array<long double, 28> powersOfTen = {
            1e0L,  1e1L,  1e2L,  1e3L,  1e4L,  1e5L,  1e6L,  1e7L,  1e8L,  1e9L,  1e10L, 1e11L, 1e12L, 1e13L,
            1e14L, 1e15L, 1e16L, 1e17L, 1e18L, 1e19L, 1e20L, 1e21L, 1e22L, 1e23L, 1e24L, 1e25L, 1e26L, 1e27L};

        // At most fifteen digits: both sides are exact as doubles.
        if (decimals < 15) {
            quotient = static_cast<double>(number) / static_cast<double>(powersOfTen[decimals]);
            return true;
        }

        // Both are exact with 64 bits. Rounded to those and then to 53, the quotient is right unless the
        // first rounding made it a tie.
        if constexpr (std::numeric_limits<long double>::digits == 64) {
            if (decimals >= powersOfTen.size() || number >> 63 != 0)
                return false;
            long double const fine =
                static_cast<long double>(static_cast<std::int64_t>(number)) / powersOfTen[decimals];
            std::uint64_t bits;
            std::memcpy(&bits, &fine, sizeof bits);
            quotient = static_cast<double>(fine);
            return (bits & 0x7FF) != 0x400;
        }
        return false;
    }

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
        return std::all_of(word.begin(), word.end(), [this](char expected) {
            if (atEnd())
                return false;
            char const c = take();
            text_ += c;
            return lower(c) == expected;
        });
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
    std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(bufferBytes + longestPlain);
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    bool ended_ = false;
    std::size_t takenBefore_ = 0;  // characters that have left the buffer
    std::string text_;             // of one number that is not plain
};

}  // namespace koImage
