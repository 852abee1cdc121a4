#include "io/decimal.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "helpers/shapes.h"

namespace povmesh {
namespace {

struct Parsed {
    std::size_t length = 0;  // 0: no number
    double value = 0;
};

Parsed parse(std::string_view text) {
    Parsed result;
    const char* end = parse_decimal(text.data(), text.data() + text.size(), result.value);
    if (end != nullptr) result.length = static_cast<std::size_t>(end - text.data());
    return result;
}

// The same by the standard library: from_chars for the extent and for what a double can hold,
// strtod (the test runs in the "C" locale) for the side on which a number leaves that range.
Parsed reference(std::string_view text) {
    const std::size_t plus = text.starts_with('+') ? 1 : 0;
    const std::size_t sign = plus != 0 || text.starts_with('-') ? 1 : 0;
    if (text.size() == sign || (!detail::is_digit(text[sign]) && text[sign] != '.')) return {};
    Parsed result;
    const char* first = text.data() + plus;
    const auto [end, error] = std::from_chars(first, text.data() + text.size(), result.value);
    if (error == std::errc::invalid_argument) return {};
    result.length = static_cast<std::size_t>(end - text.data());
    if (error == std::errc::result_out_of_range) {
        result.value = std::strtod(std::string(first, end).c_str(), nullptr);
        if (std::isinf(result.value)) {
            result.value = std::copysign(std::numeric_limits<double>::max(), result.value);
        }
    }
    return result;
}

void expect_as_reference(const std::string& text) {
    const Parsed got = parse(text);
    const Parsed want = reference(text);
    ASSERT_EQ(got.length, want.length) << '"' << text << '"';
    ASSERT_EQ(std::bit_cast<std::uint64_t>(got.value), std::bit_cast<std::uint64_t>(want.value))
        << '"' << text << "\": " << got.value << " for " << want.value;
}

std::string printed(const char* format, long double value) {
    std::string text(1200, '\0');
    const int length = std::snprintf(text.data(), text.size(), format, value);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

TEST(Decimal, ReadsTheLongestPrefix) {
    const struct {
        const char* text;
        std::size_t length;
        double value;
    } cases[] = {
        {"12", 2, 12},       {"+1.5x", 4, 1.5},
        {"-.5", 3, -0.5},    {"5.", 2, 5},
        {"1.2.3", 3, 1.2},   {"1,5", 1, 1},
        {"1e", 1, 1},        {"1e+", 1, 1},
        {"1e+x", 1, 1},      {"2E+2e1", 4, 200},
        {"2e-03", 5, 0.002}, {"0x10", 1, 0},
        {"1mm", 1, 1},       {"007", 3, 7},
        {"1.e1", 4, 10},     {"12345678901.5", 13, 12345678901.5},
        {"", 0, 0},          {"+", 0, 0},
        {"-", 0, 0},         {".", 0, 0},
        {"+-1", 0, 0},       {"-+1", 0, 0},
        {".e5", 0, 0},       {"e5", 0, 0},
        {"nan", 0, 0},       {"-inf", 0, 0},
        {"+Infinity", 0, 0}, {"ten", 0, 0},
    };
    for (const auto& c : cases) {
        const Parsed got = parse(c.text);
        EXPECT_EQ(got.length, c.length) << c.text;
        EXPECT_EQ(got.value, c.value) << c.text;
    }
}

TEST(Decimal, StaysFiniteBeyondTheRange) {
    constexpr double kMost = std::numeric_limits<double>::max();
    const std::string zeros(400, '0');
    const struct {
        std::string text;
        double value;
    } cases[] = {
        {"1e400", kMost},
        {"-1e309", -kMost},
        {"1e99999999999999999999999999", kMost},
        {"1" + zeros, kMost},
        {"0." + zeros + "1e99999", kMost},
        {"1e-400", 0.0},
        {"-1e-99999999999999999999999999", -0.0},
        {"0." + zeros + "1", 0.0},
        {"0." + zeros + "1e10", 0.0},
        {"1" + zeros + "e-99999", 0.0},
        {"0e99999", 0.0},
        {"0." + zeros + "1e401", 1.0},
        {"1" + zeros + "e-400", 1.0},
        {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
        {"2.4e-324", 0.0},
    };
    for (const auto& c : cases) {
        const Parsed got = parse(c.text);
        EXPECT_EQ(got.length, c.text.size());
        EXPECT_EQ(got.value, c.value) << c.text;
        EXPECT_EQ(std::signbit(got.value), std::signbit(c.value)) << c.text;
    }
}

TEST(Decimal, RoundsAsTheStandardLibraryDoes) {
    shapes::Random random(11);
    const auto random_digits = [&](std::size_t most) {
        std::string digits(random.below(most + 1), '0');
        for (char& c : digits) c = static_cast<char>('0' + random.below(10));
        return digits;
    };
    for (int i = 0; i < 100000; ++i) {
        const double any = std::bit_cast<double>(random.next());  // every exponent, denormals too
        if (std::isfinite(any)) {
            for (const char* format : {"%.17Lg", "%.9Lg", "%.6Le"}) {
                expect_as_reference(printed(format, static_cast<long double>(any)));
            }
        }
        const auto coordinate = static_cast<long double>((random.unit() - 0.5) * 400);
        expect_as_reference(printed("%Lf", coordinate));
        expect_as_reference(random_digits(12) + "." + random_digits(12));
        std::string text = random_digits(25) + "." + random_digits(25);
        if (random.below(2) != 0) {
            text += "e" + std::to_string(static_cast<int>(random.below(720)) - 360);
        }
        expect_as_reference(text);
        if (testing::Test::HasFatalFailure()) return;
    }
}

TEST(Decimal, RoundsTiesToEven) {
    shapes::Random random(12);
    for (int i = 0; i < 20000; ++i) {
        // A double of 53 bits and half a unit in its last place, which a long double holds exactly;
        // "%.*Le" prints all of its digits. One digit more makes it larger than the tie.
        const auto bits =
            static_cast<long double>((std::uint64_t{1} << 53) + (random.next() >> 12) * 2 + 1);
        const int power = static_cast<int>(random.below(200)) - 100;
        const std::string tie = printed("%.500Lf", std::ldexp(bits, power));
        expect_as_reference(tie);
        expect_as_reference(tie + "1");
        if (testing::Test::HasFatalFailure()) return;
    }
}

TEST(Decimal, TakesAnyGarbage) {
    shapes::Random random(13);
    constexpr std::string_view kLetters = "0123456789012345678901234567+-..eE,xnaif \xC3";
    for (int i = 0; i < 300000; ++i) {
        std::string text(random.below(14), ' ');
        for (char& c : text) c = kLetters[random.below(kLetters.size())];
        expect_as_reference(text);
        if (testing::Test::HasFatalFailure()) return;
    }
}

}  // namespace
}  // namespace povmesh
