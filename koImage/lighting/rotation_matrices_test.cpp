#include "koImage/lighting/rotation_matrices.h"

#include "koImage/lighting/number_scanner.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace koImage {

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// A folder that goes with the test.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "koImage.XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    std::string operator/(char const* name) const { return (path_ / name).string(); }
    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

std::string contentOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void write(std::string const& path, std::string const& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

/// The text as a file: in memory, where the system's files in memory can hold it.
File opened(std::string const& text)
{
    if (!text.empty() && text.find('\0') == std::string::npos)
        return File(fmemopen(const_cast<char*>(text.data()), text.size(), "r"));
    File file(std::tmpfile());
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
    return file;
}

/// The text of our file.
std::string const& rightText()
{
    static std::string const text = [] {
        TemporaryFolder const folder;
        EXPECT_FALSE(writeRotationMatrixFile((folder / "matrices").c_str(), nullptr));
        return contentOf(folder / "matrices");
    }();
    return text;
}

bool load(std::string const& text)
{
    TemporaryFolder const folder;
    write(folder / "matrices", text);
    finalizeReflectance();
    return initializeReflectance((folder / "matrices").c_str(), nullptr);
}

/// All entries in the order of the file.
std::vector<double> loadedEntries()
{
    std::vector<double> entries;
    for (int l = 0; l <= 20; ++l)
        for (int t = 0; t < 100; ++t)
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n)
                    entries.push_back(rotationMatrixEntry(l, m, n, t));
    return entries;
}

/// The same by fscanf, from zeros.
std::vector<double> entriesByFscanf(std::string const& text)
{
    File const file = opened(text);
    std::vector<double> entries;
    for (int l = 0; l <= 20; ++l)
        for (int t = 0; t < 100; ++t) {
            int ignored[2];
            static_cast<void>(std::fscanf(file.get(), "%d %d", &ignored[0], &ignored[1]) == 2);
            for (int i = 0; i < (2 * l + 1) * (2 * l + 1); ++i) {
                double entry = 0;
                if (std::feof(file.get()) == 0)  // where every read fails, slowly
                    static_cast<void>(std::fscanf(file.get(), "%lf ", &entry) == 1);
                entries.push_back(entry);
            }
        }
    return entries;
}

/// Indices of the first few entries that differ in their bits.
std::vector<std::size_t> differences(std::vector<double> const& a, std::vector<double> const& b)
{
    std::vector<std::size_t> different;
    for (std::size_t i = 0; i < a.size() && different.size() < 5; ++i)
        if (std::bit_cast<std::uint64_t>(a[i]) != std::bit_cast<std::uint64_t>(b[i]))
            different.push_back(i);
    return different;
}

/// Our matrices, loaded.
class RotationMatrices : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(load(rightText())); }
    static void TearDownTestSuite() { finalizeReflectance(); }
};

long double factorial(int n)
{
    return n < 2 ? 1.0L : static_cast<long double>(n) * factorial(n - 1);
}

/// Wigner's sum. The terms of degree 20 are up to 3e4, so it is good to about 1e-14 / 10 in long double.
long double wignerSum(int l, int a, int b, long double theta)
{
    long double sum = 0;
    for (int s = std::max(0, b - a); s <= std::min(l + b, l - a); ++s) {
        long double const sign = (a - b + s) % 2 == 0 ? 1 : -1;
        sum += sign * std::pow(std::cos(theta / 2), static_cast<long double>(2 * l + b - a - 2 * s)) *
               std::pow(std::sin(theta / 2), static_cast<long double>(a - b + 2 * s)) /
               (factorial(l + b - s) * factorial(s) * factorial(a - b + s) * factorial(l - a - s));
    }
    return sum * std::sqrt(factorial(l + a) * factorial(l - a) * factorial(l + b) * factorial(l - b));
}

/// The entry of the real basis.
long double entryByWigner(int l, int m, int n, long double theta)
{
    if ((m < 0) != (n < 0))
        return 0;
    int const mu = std::abs(m);
    int const nu = std::abs(n);
    if (mu == 0 && nu == 0)
        return wignerSum(l, 0, 0, theta);
    if (mu == 0 || nu == 0)
        return std::sqrt(2.0L) * wignerSum(l, mu, nu, theta);
    long double const opposite = (nu % 2 == 0 ? 1 : -1) * wignerSum(l, mu, -nu, theta);
    return wignerSum(l, mu, nu, theta) + (m > 0 ? opposite : -opposite);
}

constexpr long double piLong = 3.14159265358979323846264338327950288L;

/// Y_lm at a direction, by the standard library.
double harmonic(int l, int m, double x, double y, double z)
{
    double const theta = std::acos(std::clamp(z, -1.0, 1.0));
    double const phi = std::atan2(y, x);
    double const polar =
        std::sph_legendre(static_cast<unsigned>(l), static_cast<unsigned>(std::abs(m)), theta);
    return m == 0 ? polar : polar * std::numbers::sqrt2 * (m > 0 ? std::cos(m * phi) : std::sin(-m * phi));
}

/// Nodes and weights of Gauss and Legendre on -1 .. 1.
std::vector<std::pair<double, double>> gaussLegendre(int n)
{
    std::vector<std::pair<double, double>> rule;
    for (int i = 0; i < n; ++i) {
        double x = std::cos(std::numbers::pi * (i + 0.75) / (n + 0.5));
        double slope = 0;
        for (int step = 0; step < 20; ++step) {
            double const value = std::legendre(static_cast<unsigned>(n), x);
            slope = n * (x * value - std::legendre(static_cast<unsigned>(n - 1), x)) / (x * x - 1);
            x -= value / slope;
        }
        rule.emplace_back(x, 2 / ((1 - x * x) * slope * slope));
    }
    return rule;
}

}  // namespace

// --- The matrices ---

TEST_F(RotationMatrices, AreTheIdentityAtTiltZero)
{
    for (int l = 0; l <= 20; ++l)
        for (int m = -l; m <= l; ++m)
            for (int n = -l; n <= l; ++n)
                ASSERT_EQ(rotationMatrixEntry(l, m, n, 0), m == n ? 1.0 : 0.0) << l << ' ' << m << ' ' << n;
}

TEST_F(RotationMatrices, OfDegreeOneAreThoseFoundByHand)
{
    // Y_1-1, Y_10, Y_11 are proportional to -y, z, -x.
    for (int t = 0; t < 100; ++t) {
        double const theta = t * std::numbers::pi / 100;
        double const expected[3][3] = {
            {1, 0, 0}, {0, std::cos(theta), std::sin(theta)}, {0, -std::sin(theta), std::cos(theta)}};
        for (int m = -1; m <= 1; ++m)
            for (int n = -1; n <= 1; ++n)
                EXPECT_NEAR(rotationMatrixEntry(1, m, n, t), expected[m + 1][n + 1], 1e-15) << m << n << t;
    }
}

TEST_F(RotationMatrices, AreWithinTheirErrorOfWignersSum)
{
    for (int l = 0; l <= 20; ++l)
        for (int t = 0; t < 100; t += l < 12 ? 9 : 33)
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n) {
                    long double const expected = entryByWigner(l, m, n, t * piLong / 100);
                    double const error =
                        std::abs(static_cast<double>(rotationMatrixEntry(l, m, n, t) - expected));
                    ASSERT_LE(error, 1e-14) << l << ' ' << m << ' ' << n << ' ' << t;
                }
}

TEST_F(RotationMatrices, AreOrthogonal)
{
    for (int l = 0; l <= 20; ++l)
        for (int const t : {1, 17, 50, 83, 99})
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n) {
                    double product = 0;
                    for (int k = -l; k <= l; ++k)
                        product += rotationMatrixEntry(l, m, k, t) * rotationMatrixEntry(l, n, k, t);
                    ASSERT_NEAR(product, m == n ? 1.0 : 0.0, 1e-13) << l << ' ' << m << ' ' << n << ' ' << t;
                }
}

TEST_F(RotationMatrices, OfTwoTiltsMultiplyToThatOfTheirSum)
{
    for (int l = 0; l <= 20; ++l)
        for (auto const& [s, t] : {std::pair{1, 2}, {30, 31}, {50, 49}, {3, 91}})
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n) {
                    double product = 0;
                    for (int k = -l; k <= l; ++k)
                        product += rotationMatrixEntry(l, m, k, s) * rotationMatrixEntry(l, k, n, t);
                    ASSERT_NEAR(product, rotationMatrixEntry(l, m, n, s + t), 1e-13)
                        << l << ' ' << m << ' ' << n << ' ' << s << ' ' << t;
                }
}

// The defining integral, by a rule that is exact for products of two harmonics of degree 20.
TEST_F(RotationMatrices, AreTheIntegralThatDefinesThem)
{
    auto const rule = gaussLegendre(21);
    for (int const l : {1, 2, 5, 20})
        for (int const t : {13, 50, 88}) {
            double const theta = t * std::numbers::pi / 100;
            auto const at = [l](int m, int n) { return std::size_t((m + l) * (2 * l + 1) + n + l); };
            std::vector<double> integral(std::size_t((2 * l + 1) * (2 * l + 1)), 0.0);
            for (auto const& [z, weight] : rule)
                for (int j = 0; j < 42; ++j) {
                    double const phi = j * 2 * std::numbers::pi / 42;
                    double const x = std::sqrt(1 - z * z) * std::cos(phi);
                    double const y = std::sqrt(1 - z * z) * std::sin(phi);
                    double const tiltedX = std::cos(theta) * x + std::sin(theta) * z;
                    double const tiltedZ = -std::sin(theta) * x + std::cos(theta) * z;
                    std::vector<double> local;
                    for (int n = -l; n <= l; ++n)
                        local.push_back(harmonic(l, n, x, y, z));
                    for (int m = -l; m <= l; ++m) {
                        double const world = harmonic(l, m, tiltedX, y, tiltedZ);
                        for (int n = -l; n <= l; ++n)
                            integral[at(m, n)] +=
                                weight * 2 * std::numbers::pi / 42 * world * local[std::size_t(n + l)];
                    }
                }
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n)
                    ASSERT_NEAR(rotationMatrixEntry(l, m, n, t), integral[at(m, n)], 1e-12)
                        << l << ' ' << m << ' ' << n << ' ' << t;
        }
}

TEST_F(RotationMatrices, HaveNoEntriesOutside)
{
    EXPECT_NE(rotationMatrixEntry(20, 20, 20, 99), 0.0);
    EXPECT_EQ(rotationMatrixEntry(21, 0, 0, 0), 0.0);
    EXPECT_EQ(rotationMatrixEntry(-1, 0, 0, 0), 0.0);
    EXPECT_EQ(rotationMatrixEntry(2, 3, 3, 0), 0.0);
    EXPECT_EQ(rotationMatrixEntry(2, 0, -3, 0), 0.0);
    EXPECT_EQ(rotationMatrixEntry(2, 0, 0, 100), 0.0);
    EXPECT_EQ(rotationMatrixEntry(2, 0, 0, -1), 0.0);
}

// --- Numbers ---

TEST(NumberScanner, ReadsTheDoubleNearestToTheText)
{
    std::mt19937_64 random(1);
    std::vector<double> expected;
    std::string text;
    for (int i = 0; i < 20000; ++i) {
        double const value = i % 2 == 0
                                 ? std::bit_cast<double>(random())
                                 : static_cast<double>(random() >> 11) * 0x1p-53 * (i % 4 == 1 ? 1 : -1);
        if (!std::isfinite(value))
            continue;
        std::array<char, 64> digits;
        std::snprintf(digits.data(), digits.size(),
                      i % 3 == 0   ? "%.17g "
                      : i % 3 == 1 ? "%lf "
                                   : "%.25f ",
                      i % 3 == 0 ? value : std::fmod(value, 1e9));
        text += digits.data();
        expected.push_back(std::strtod(digits.data(), nullptr));
    }
    File const file = opened(text);
    NumberScanner scanner(file.get());
    for (double const value : expected) {
        double read = -1;
        ASSERT_TRUE(scanner.readDouble(read));
        ASSERT_EQ(std::bit_cast<std::uint64_t>(read), std::bit_cast<std::uint64_t>(value))
            << value << ' ' << read;
    }
    double none;
    EXPECT_FALSE(scanner.readDouble(none));
    EXPECT_TRUE(scanner.atEnd());
}

// The same reads, the same results, the same position afterwards, on text that is almost a number.
TEST(NumberScanner, StopsWhereFscanfStops)
{
    std::vector<std::string> texts = {"",
                                      "+",
                                      "-",
                                      ".",
                                      "+.",
                                      "0x",
                                      "0x.",
                                      "0x.8p1",
                                      "0x1p",
                                      "0x1p+",
                                      "0X1.8P-3 7",
                                      "1e",
                                      "1e+",
                                      "1e+x",
                                      "1e5.3",
                                      "1.5.2",
                                      "1..2",
                                      ".e5",
                                      "e5",
                                      "--1",
                                      "+-1",
                                      "inf",
                                      "INFINITY",
                                      "infini",
                                      "infix 3",
                                      "in",
                                      "nan",
                                      "nan(1)",
                                      "nax 4",
                                      "-NaN",
                                      "n",
                                      "i",
                                      "-inf",
                                      "1e400",
                                      "-1e400",
                                      "1e-400",
                                      "4e-320",
                                      "1,5",
                                      "0",
                                      "00012",
                                      "-0",
                                      "-0.0",
                                      "\v\f\r\t5",
                                      "12abc",
                                      "1 2\n3",
                                      "99999999999999999999999999999999999",
                                      "2147483648 99999999999999999999 1",
                                      "0.00000000000000000000000000000012345678901234567890",
                                      "9007199254740993 9007199254740992.5",
                                      "1\0002",
                                      "0x 1",
                                      "0e0",
                                      "00x1",
                                      "0.x"};
    texts.emplace_back(std::string("1\0 2", 4));
    texts.emplace_back(std::string(70000, '1') + ".5 2");
    texts.emplace_back(std::string(65530, ' ') + "12345.678901 -7 nan");

    std::mt19937 random(2);
    constexpr std::string_view alphabet = "0001234567899..+--eExXpPinfINFatyAN   \n\t,";
    for (int i = 0; i < 10000; ++i) {
        std::string text;
        for (auto length = random() % 12; length > 0; --length)
            text += alphabet[random() % alphabet.size()];
        texts.push_back(text);
    }

    for (std::string const& text : texts) {
        File const theirs = opened(text);
        File const ours = opened(text);
        NumberScanner scanner(ours.get());

        for (int step = 0; step < 6; ++step) {
            // Not a trace: it would take longer than the reading.
            auto const where = [&] { return '"' + text.substr(0, 100) + "\", step " + std::to_string(step); };
            if (step % 3 == 0) {
                int ignored[2];
                bool const expected = std::fscanf(theirs.get(), "%d %d", &ignored[0], &ignored[1]) == 2;
                ASSERT_EQ(scanner.skipInt() && scanner.skipInt(), expected) << where();
            } else {
                double expected = -7;
                double actual = -7;
                bool const expectedRead = std::fscanf(theirs.get(), "%lf ", &expected) == 1;
                bool const actualRead = scanner.readDouble(actual);
                if (actualRead)
                    scanner.skipSpace();
                ASSERT_EQ(actualRead, expectedRead) << where();
                ASSERT_EQ(std::bit_cast<std::uint64_t>(actual), std::bit_cast<std::uint64_t>(expected))
                    << actual << ' ' << expected << ' ' << where();
            }
        }
    }
}

// In a locale with a decimal comma, where fscanf itself reads other numbers.
TEST(NumberScanner, DoesNotKnowTheLocale)
{
    TemporaryFolder const folder;
    write(folder / "source",
          "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
    std::string const command =
        "localedef -c -i " + (folder / "source") + " " + (folder / "comma") + " >/dev/null 2>&1";
    static_cast<void>(std::system(command.c_str()));
    setenv("LOCPATH", folder.path().c_str(), 1);
    bool const isSet = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    unsetenv("LOCPATH");
    ASSERT_TRUE(isSet) << "localedef made no locale with a decimal comma: it wants the package locales";

    double theirs = 0;
    EXPECT_EQ(std::sscanf("0,25", "%lf", &theirs), 1);
    EXPECT_EQ(theirs, 0.25);

    std::string const text = "0.25 0x1.8p3 1.5e400 0.00000000000000000000000000001 1,5 ";
    File const file = opened(text);
    NumberScanner scanner(file.get());
    for (double const expected : {0.25, 12.0, HUGE_VAL, 1e-29, 1.0}) {
        double number = 0;
        EXPECT_TRUE(scanner.readDouble(number));
        EXPECT_EQ(number, expected);
    }
    std::setlocale(LC_NUMERIC, "C");
}

// --- Reading a file ---

class InitializeReflectance : public ::testing::Test {
protected:
    void TearDown() override { finalizeReflectance(); }
};

TEST_F(InitializeReflectance, ReadsWhatFscanfReads)
{
    std::string const& right = rightText();
    std::string rounded;
    {
        std::istringstream numbers(right);
        for (double number; numbers >> number;) {
            std::array<char, 32> digits;
            std::snprintf(digits.data(), digits.size(), "%lf ", number);
            rounded += digits.data();
        }
    }
    std::string inWords = right;
    inWords.replace(inWords.find("\n1", 5), 2, "\nnan inf 0x1.8p3 -infinity 1e-320 1e999 +7 ");
    std::string broken = right;
    broken.replace(broken.size() / 2, 3, " x ");

    for (auto const& [name, text] : {std::pair<char const*, std::string>{"ours", right},
                                     {"rounded", rounded},
                                     {"in words", inWords},
                                     {"broken", broken},
                                     {"cut between numbers", right.substr(0, right.rfind('\n', 1000000))},
                                     {"cut in a number", right.substr(0, 1000003)},
                                     {"cut to one", "0 0\n1"},
                                     {"empty", ""},
                                     {"without numbers", "these are not the matrices"},
                                     {"one integer", "17"}}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(load(text));
        EXPECT_EQ(differences(entriesByFscanf(text), loadedEntries()), std::vector<std::size_t>());
    }
}

TEST_F(InitializeReflectance, OfAMissingFileSaysSoAndTriesAgainTheNextTime)
{
    finalizeReflectance();
    TemporaryFolder const folder;
    std::string const path = folder / "matrices";
    for (int attempt = 0; attempt < 2; ++attempt) {
        ::testing::internal::CaptureStdout();
        EXPECT_FALSE(initializeReflectance(path.c_str(), nullptr));
        std::fflush(stdout);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(),
                  "Failed to load spherical harmonic matrix file " + path + ".\n");
    }
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 0), 0.0);

    write(path, "0 0 1");
    EXPECT_TRUE(initializeReflectance(path.c_str(), nullptr));
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 0), 1.0);
}

TEST_F(InitializeReflectance, LoadsOnceUntilFinalized)
{
    ASSERT_TRUE(load("0 0 2"));
    TemporaryFolder const folder;
    write(folder / "other", "0 0 3");
    EXPECT_TRUE(initializeReflectance((folder / "other").c_str(), nullptr));
    EXPECT_TRUE(initializeReflectance((folder / "missing").c_str(), nullptr));
    EXPECT_TRUE(initializeReflectance(nullptr, nullptr));
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 0), 2.0);

    finalizeReflectance();
    finalizeReflectance();
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 0), 0.0);
    EXPECT_TRUE(initializeReflectance((folder / "other").c_str(), nullptr));
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 0), 3.0);
}

TEST_F(InitializeReflectance, LeavesZerosWhereTheFileBeforeHadNumbers)
{
    ASSERT_TRUE(load(rightText()));
    ASSERT_TRUE(load("0 0 1 0 1 0.5"));
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 1), 0.5);
    EXPECT_EQ(rotationMatrixEntry(0, 0, 0, 2), 0.0);
    EXPECT_EQ(rotationMatrixEntry(20, 20, 20, 99), 0.0);
}

TEST_F(InitializeReflectance, OfNoNameFails)
{
    finalizeReflectance();
    ::testing::internal::CaptureStdout();
    EXPECT_FALSE(initializeReflectance(nullptr, nullptr));
    std::fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Failed to load spherical harmonic matrix file .\n");
}

namespace {

class Fractions : public koUtil::Progress {
public:
    void set(double fraction) override { values.push_back(fraction); }
    std::vector<double> values;
};

}  // namespace

TEST_F(InitializeReflectance, TellsItsProgressAtEveryOtherDegree)
{
    TemporaryFolder const folder;
    write(folder / "matrices", "");
    finalizeReflectance();
    Fractions progress;
    ASSERT_TRUE(initializeReflectance((folder / "matrices").c_str(), &progress));
    EXPECT_EQ(progress.values,
              (std::vector<double>{0 / 20.0, 2 / 20.0, 4 / 20.0, 6 / 20.0, 8 / 20.0, 10 / 20.0, 12 / 20.0,
                                   14 / 20.0, 16 / 20.0, 18 / 20.0, 20 / 20.0, 1.0}));
}

// --- Writing a file ---

TEST_F(InitializeReflectance, ReadsBackWhatWasWrittenToTheBit)
{
    ASSERT_TRUE(load(rightText()));
    auto const entries = loadedEntries();
    ASSERT_EQ(entries.size(), 1234100u);

    // Once more through the standard library's shortest text.
    std::string text;
    std::size_t i = 0;
    for (int l = 0; l <= 20; ++l)
        for (int t = 0; t < 100; ++t) {
            text += std::to_string(l) + ' ' + std::to_string(t) + '\n';
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n) {
                    std::array<char, 32> digits;
                    *std::to_chars(digits.data(), digits.data() + 31, entries[i++]).ptr = '\0';
                    text += digits.data();
                    text += n < l ? ' ' : '\n';
                }
        }
    EXPECT_TRUE(text == rightText());
}

TEST(WriteRotationMatrixFile, StaysBelowFifteenMegabytes)
{
    EXPECT_LT(rightText().size(), 15000000u);
}

TEST(WriteRotationMatrixFile, WritesNoNegativeZero)
{
    EXPECT_EQ(rightText().find("-0 "), std::string::npos);
    EXPECT_EQ(rightText().find("-0\n"), std::string::npos);
}

TEST(WriteRotationMatrixFile, TellsItsProgress)
{
    TemporaryFolder const folder;
    Fractions progress;
    EXPECT_FALSE(writeRotationMatrixFile((folder / "matrices").c_str(), &progress));
    ASSERT_GE(progress.values.size(), 10u);
    EXPECT_TRUE(std::is_sorted(progress.values.begin(), progress.values.end()));
    EXPECT_EQ(progress.values.front(), 0.0);
    EXPECT_EQ(progress.values.back(), 1.0);
}

TEST(WriteRotationMatrixFile, ReplacesAFileAsAWhole)
{
    TemporaryFolder const folder;
    write(folder / "matrices", std::string(20000000, 'x'));
    EXPECT_FALSE(writeRotationMatrixFile((folder / "matrices").c_str(), nullptr));
    EXPECT_TRUE(contentOf(folder / "matrices") == rightText());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1)
        << "nothing is left beside it";
}

TEST(WriteRotationMatrixFile, LeavesNothingWhereItFails)
{
    TemporaryFolder const folder;
    std::string const missing = folder / "no folder/matrices";
    koUtil::Error const error = writeRotationMatrixFile(missing.c_str(), nullptr);
    EXPECT_EQ(error.code(), 1);
    EXPECT_NE(error.message().find(missing), std::string::npos) << error.message();

    // A folder cannot be replaced by a file.
    std::filesystem::create_directory(folder / "matrices");
    EXPECT_TRUE(writeRotationMatrixFile((folder / "matrices").c_str(), nullptr));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    EXPECT_TRUE(std::filesystem::is_directory(folder / "matrices"));

    EXPECT_TRUE(writeRotationMatrixFile(nullptr, nullptr));
    EXPECT_TRUE(writeRotationMatrixFile("", nullptr));
}

// --- Checking a file ---

namespace {

/// What verifyRotationMatrixFile says after the name of the file; empty where it finds no fault.
std::string faultOf(std::string const& text)
{
    TemporaryFolder const folder;
    std::string const path = folder / "matrices";
    write(path, text);
    koUtil::Error const error = verifyRotationMatrixFile(path.c_str());
    if (!error)
        return "";
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.message().substr(0, path.size()), path);
    return error.message().substr(path.size());
}

/// The right text with the numbers of one line replaced.
std::string withLine(int number, std::string const& line)
{
    std::string text = rightText();
    std::size_t start = 0;
    for (int i = 1; i < number; ++i)
        start = text.find('\n', start) + 1;
    return text.replace(start, text.find('\n', start) - start, line);
}

}  // namespace

TEST(VerifyRotationMatrixFile, FindsNoFaultInWhatIsWritten)
{
    EXPECT_EQ(faultOf(rightText()), "");
    EXPECT_EQ(faultOf(rightText() + " \n\n"), "");
}

TEST(VerifyRotationMatrixFile, AcceptsSixDecimalsAndAnyHeaders)
{
    std::string text;
    std::istringstream lines(rightText());
    int block = 0;
    int rowsLeft = 0;
    for (std::string line; std::getline(lines, line);) {
        if (rowsLeft == 0) {
            text += "41 -1 ";
            rowsLeft = 2 * (block++ / 100) + 1;
            continue;
        }
        --rowsLeft;
        std::istringstream numbers(line);
        for (double number; numbers >> number;) {
            std::array<char, 32> digits;
            std::snprintf(digits.data(), digits.size(), "%lf ", number);
            text += digits.data();
        }
    }
    EXPECT_EQ(faultOf(text), "");
}

TEST(VerifyRotationMatrixFile, TellsLineAndReason)
{
    // Degree 0 takes lines 1 to 200; the first matrix of degree 1 lines 201 to 204.
    EXPECT_EQ(faultOf(withLine(4, "0.5")),
              ", line 4: entry (0, 0) of the matrix of degree 0, tilt 1 is 0.500000 instead of 1.000000.");
    EXPECT_EQ(faultOf(withLine(202, "1 0 nan")),
              ", line 202: entry (-1, 1) of the matrix of degree 1, tilt 0 is nan instead of 0.000000.");
    EXPECT_EQ(faultOf(withLine(203, "0 1 zero")),
              ", line 203: expected an entry of the matrix of degree 1, tilt 0.");
    EXPECT_EQ(faultOf(withLine(3, "none 1")),
              ", line 3: expected the two integers before the matrix of degree 0, tilt 1.");
    EXPECT_EQ(faultOf(rightText() + "1"), ", line 46201: more text after the last matrix.");
    EXPECT_EQ(faultOf(""),
              ", line 1: expected the two integers before the matrix of degree 0, tilt 0; the file "
              "ends here.");
    EXPECT_EQ(faultOf("0 0\n1\n0"),
              ", line 3: expected the two integers before the matrix of degree 0, tilt 1; "
              "the file ends here.");
    EXPECT_EQ(faultOf("0 0\n1\n0 1\n"),
              ", line 4: expected an entry of the matrix of degree 0, tilt 1; the file "
              "ends here.");
}

TEST(VerifyRotationMatrixFile, TellsTransposedMatrices)
{
    std::string transposed = rightText();
    ASSERT_TRUE(load(transposed));
    transposed.clear();
    for (int l = 0; l <= 20; ++l)
        for (int t = 0; t < 100; ++t) {
            transposed += "0 0\n";
            for (int m = -l; m <= l; ++m)
                for (int n = -l; n <= l; ++n)
                    transposed += std::to_string(rotationMatrixEntry(l, n, m, t)) + ' ';
        }
    finalizeReflectance();
    EXPECT_NE(faultOf(transposed).find("is -0.031411 instead of 0.031411"), std::string::npos)
        << faultOf(transposed);
}

TEST(VerifyRotationMatrixFile, TellsAFileThatCannotBeOpened)
{
    TemporaryFolder const folder;
    std::string const missing = folder / "missing";
    koUtil::Error const error = verifyRotationMatrixFile(missing.c_str());
    EXPECT_EQ(error.message(), missing + " cannot be opened: No such file or directory.");
    EXPECT_TRUE(verifyRotationMatrixFile(nullptr));
}

}  // namespace koImage
