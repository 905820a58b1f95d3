#include "koImage/lighting/rotation_matrices.h"

#include "koBase/output_file.h"
#include "koImage/lighting/number_scanner.h"
#include "koImage/lighting/rotation_table.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <string>

namespace koImage {

namespace {

using harmonics::maxDegree;

std::unique_ptr<RotationTable const> loaded;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openForReading(char const* path)
{
    return File(path != nullptr ? std::fopen(path, "rt") : nullptr);
}

// --- Computing ---

/// Wigner's small d of orders a and b, a >= |b|, for the degrees from a to 20, at [degree].
///
/// In long double, which leaves of the recurrence's rounding errors nothing that a double shows.
using SmallD = std::array<long double, maxDegree + 1>;

SmallD smallD(int a, int b, long double theta)
{
    // At degree a: sqrt(2a choose a + b) cos(theta/2)^(a + b) (-sin(theta/2))^(a - b).
    long double binomial = 1;
    for (int i = 1; i <= a - b; ++i)
        binomial = binomial * static_cast<long double>(a + b + i) / static_cast<long double>(i);
    SmallD d{};
    d[static_cast<std::size_t>(a)] = std::sqrt(binomial) *
                                     std::pow(std::cos(theta / 2), static_cast<long double>(a + b)) *
                                     std::pow(-std::sin(theta / 2), static_cast<long double>(a - b));

    long double const cosine = std::cos(theta);
    auto const root = [a, b](int l) {
        return std::sqrt(static_cast<long double>((l * l - a * a) * (l * l - b * b)));
    };
    for (int l = a; l < maxDegree; ++l) {
        auto const at = static_cast<std::size_t>(l);
        if (l == 0) {
            d[1] = cosine;
            continue;
        }
        long double const below = l > a ? d[at - 1] : 0;
        long double const slope =
            static_cast<long double>(l * (l + 1)) * cosine - static_cast<long double>(a * b);
        d[at + 1] = (static_cast<long double>(2 * l + 1) * slope * d[at] -
                     static_cast<long double>(l + 1) * root(l) * below) /
                    (static_cast<long double>(l) * root(l + 1));
    }
    return d;
}

/// Stores d(mu, nu) and d(mu, -nu), mu, nu >= 0, as the entries of the real basis that they make up.
void storeEntries(RotationTable& table, int l, int mu, int nu, int t, long double same, long double opposite)
{
    auto const store = [&](int m, int n, long double value) {
        table.at(l, m, n)[t] = static_cast<double>(value + 0.0L);  // no -0 in the file
    };
    if (mu == 0 && nu == 0) {
        store(0, 0, same);
    } else if (mu == 0 || nu == 0) {
        store(mu, nu, std::sqrt(2.0L) * same);
    } else {
        long double const signedOpposite = nu % 2 == 0 ? opposite : -opposite;
        store(mu, nu, same + signedOpposite);
        store(-mu, -nu, same - signedOpposite);
    }
}

RotationTable computeTable()
{
    constexpr long double pi = 3.14159265358979323846264338327950288L;
    RotationTable table;
    for (int t = 0; t < RotationTable::tilts; ++t) {
        long double const theta = static_cast<long double>(t) * pi / 100;
        for (int a = 0; a <= maxDegree; ++a)
            for (int b = 0; b <= a; ++b) {
                SmallD const same = smallD(a, b, theta);
                SmallD const opposite = smallD(a, -b, theta);
                for (int l = a; l <= maxDegree; ++l) {
                    auto const at = static_cast<std::size_t>(l);
                    storeEntries(table, l, a, b, t, same[at], opposite[at]);

                    // d(b, a) = (-1)^(a - b) d(a, b), and d(b, -a) = d(a, -b).
                    if (a != b)
                        storeEntries(table, l, b, a, t, (a - b) % 2 == 0 ? same[at] : -same[at],
                                     opposite[at]);
                }
            }
    }
    return table;
}

// --- Files ---

RotationTable readTable(std::FILE* file, koUtil::Progress* progress)
{
    NumberScanner scanner(file);
    RotationTable table;
    for (int l = 0; l <= maxDegree; ++l) {
        if (l % 2 == 0)
            koUtil::setProgress(progress, l / 20.0);
        for (int t = 0; t < RotationTable::tilts; ++t) {
            static_cast<void>(scanner.skipInt() && scanner.skipInt());
            for (int m = -l; m <= l; ++m)
                scanner.readDoubles(table.at(l, m, -l) + t, RotationTable::tilts, 2 * l + 1);
        }
    }
    koUtil::setProgress(progress, 1.0);
    return table;
}

/// The line of a character, from 1.
int lineAt(char const* path, std::size_t position)
{
    std::ifstream file(path, std::ios::binary);
    int line = 1;
    for (std::istreambuf_iterator<char> c(file), end; position > 0 && c != end; ++c, --position)
        line += *c == '\n' ? 1 : 0;
    return line;
}

/// Writes a number as the shortest text that reads back as the same one.
template <class Number>
void writeNumber(koOS::OutputFile& file, Number number, char separator)
{
    std::array<char, 32> text;
    char* const end = std::to_chars(text.data(), text.data() + text.size() - 1, number).ptr;
    *end = separator;
    file.write(std::as_bytes(std::span(text.data(), end + 1)));
}

}  // namespace

RotationTable const* loadedRotations()
{
    return loaded.get();
}

bool initializeReflectance(char const* path, koUtil::Progress* progress)
{
    if (loaded != nullptr)
        return true;

    harmonics::setup();
    File const file = openForReading(path);
    if (file == nullptr) {
        std::printf("Failed to load spherical harmonic matrix file %s.\n", path != nullptr ? path : "");
        return false;
    }
    loaded = std::make_unique<RotationTable>(readTable(file.get(), progress));
    return true;
}

void finalizeReflectance()
{
    loaded.reset();
}

double rotationMatrixEntry(int l, int m, int n, int t)
{
    bool const isEntry = l >= 0 && l <= maxDegree && m >= -l && m <= l && n >= -l && n <= l && t >= 0 &&
                         t < RotationTable::tilts;
    return loaded != nullptr && isEntry ? loaded->at(l, m, n)[t] : 0.0;
}

koUtil::Error writeRotationMatrixFile(char const* path, koUtil::Progress* progress)
{
    koUtil::setProgress(progress, 0.0);
    RotationTable const table = computeTable();
    koOS::OutputFile file(path);
    for (int l = 0; l <= maxDegree; ++l) {
        for (int t = 0; t < RotationTable::tilts; ++t) {
            writeNumber(file, l, ' ');
            writeNumber(file, t, '\n');
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n)
                    writeNumber(file, table.at(l, m, n)[t], n < l ? ' ' : '\n');
        }
        koUtil::setProgress(progress, (l + 1.0) / (maxDegree + 1));
    }
    return file.commit();
}

koUtil::Error verifyRotationMatrixFile(char const* path)
{
    File const file = openForReading(path);
    if (file == nullptr)
        return {1, "%s cannot be opened: %s.", path != nullptr ? path : "", std::strerror(errno)};

    RotationTable const expected = computeTable();
    NumberScanner scanner(file.get());
    auto const fault = [&](std::string const& reason) {
        return koUtil::Error(1, "%s, line %d: %s.", path, lineAt(path, scanner.taken()), reason.c_str());
    };
    auto const missing = [&](std::string const& what) {
        return fault("expected " + what + (scanner.atEnd() ? "; the file ends here" : ""));
    };
    for (int l = 0; l <= maxDegree; ++l)
        for (int t = 0; t < RotationTable::tilts; ++t) {
            std::string const matrix =
                "the matrix of degree " + std::to_string(l) + ", tilt " + std::to_string(t);
            if (!scanner.skipInt() || !scanner.skipInt())
                return missing("the two integers before " + matrix);
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n) {
                    scanner.skipSpace();
                    double value;
                    if (!scanner.readDouble(value))
                        return missing("an entry of " + matrix);

                    // Not a number is wrong, too.
                    constexpr double tolerance = 1e-6;
                    double const right = expected.at(l, m, n)[t];
                    if (!(std::abs(value - right) <= tolerance))
                        return fault("entry (" + std::to_string(m) + ", " + std::to_string(n) + ") of " +
                                     matrix + " is " + std::to_string(value) + " instead of " +
                                     std::to_string(right));
                }
        }
    scanner.skipSpace();
    return scanner.atEnd() ? koUtil::Error() : fault("more text after the last matrix");
}

}  // namespace koImage
