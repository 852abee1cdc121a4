#include "base/predicates.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace povmesh {
namespace {

// Whole numbers of 1024 bits, two's complement: coordinates as multiples of 2^-201 take 330 bits,
// a product of three differences 993.
struct Whole {
    std::array<std::uint32_t, 32> words{};

    static Whole from(double value) {
        int exponent = 0;
        const double fraction = std::frexp(std::abs(value), &exponent);
        auto bits = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
        int shift = exponent - 53 + 201;
        if (shift < 0) {
            EXPECT_EQ(bits & ((1ULL << -shift) - 1), 0U) << value;
            bits >>= -shift;
            shift = 0;
        }
        Whole result;
        for (std::size_t i = 0; i < 53; ++i) {
            const std::size_t at = i + static_cast<std::size_t>(shift);
            if ((bits >> i & 1U) != 0) result.words[at / 32] |= 1U << (at % 32);
        }
        return value < 0 ? Whole() - result : result;
    }

    friend Whole operator-(const Whole& a, const Whole& b) {
        Whole result;
        std::int64_t carry = 0;
        for (std::size_t i = 0; i < 32; ++i) {
            carry += static_cast<std::int64_t>(a.words[i]) - static_cast<std::int64_t>(b.words[i]);
            result.words[i] = static_cast<std::uint32_t>(carry);
            carry >>= 32;
        }
        return result;
    }

    friend Whole operator*(const Whole& a, const Whole& b) {
        Whole result;
        for (std::size_t i = 0; i < 32; ++i) {
            std::uint64_t carry = 0;
            for (std::size_t j = 0; i + j < 32; ++j) {
                carry += static_cast<std::uint64_t>(a.words[i]) * b.words[j] + result.words[i + j];
                result.words[i + j] = static_cast<std::uint32_t>(carry);
                carry >>= 32;
            }
        }
        return result;
    }

    int sign() const {
        if (words[31] >> 31 != 0) return -1;
        for (const std::uint32_t word : words) {
            if (word != 0) return 1;
        }
        return 0;
    }
};

int slow_orient2d(Point2d a, Point2d b, Point2d c) {
    const auto minus = [](double p, double q) { return Whole::from(p) - Whole::from(q); };
    return (minus(b.x, a.x) * minus(c.y, a.y) - minus(b.y, a.y) * minus(c.x, a.x)).sign();
}

int slow_orient3d(Vec3d a, Vec3d b, Vec3d c, Vec3d d) {
    using Row = std::array<Whole, 3>;
    const auto row = [&](Vec3d p) -> Row {
        return {Whole::from(p.x) - Whole::from(a.x), Whole::from(p.y) - Whole::from(a.y),
                Whole::from(p.z) - Whole::from(a.z)};
    };
    const Row u = row(b);
    const Row v = row(c);
    const Row w = row(d);
    Whole det;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t j = (i + 1) % 3;
        const std::size_t k = (i + 2) % 3;
        det = det - u[i] * (v[k] * w[j] - v[j] * w[k]);
    }
    return det.sign();
}

class Coordinates {
public:
    virtual ~Coordinates() = default;
    virtual double next() = 0;
    Vec3d point() {
        const double x = next();
        const double y = next();
        return {x, y, next()};
    }
};

/// Whole numbers from 0 to 3, moved and scaled: most quadruples lie in a plane or nearly so.
class Grid : public Coordinates {
public:
    Grid(double scale, double offset) : scale_(scale), offset_(offset) {}
    double next() override { return static_cast<double>(random_() % 4) * scale_ + offset_; }

private:
    std::mt19937 random_{1};
    double scale_, offset_;
};

/// Any finite float, denormals and the largest included.
class AnyFloat : public Coordinates {
public:
    double next() override {
        constexpr std::array<float, 5> kSpecial = {
            0.0F, std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(),
            std::numeric_limits<float>::max(), -std::numeric_limits<float>::max()};
        if (random_() % 4 == 0) return static_cast<double>(kSpecial[random_() % kSpecial.size()]);
        const int exponent = static_cast<int>(random_() % 277) - 149;
        return static_cast<double>(
            std::ldexp(static_cast<float>(random_() % 4096) / 2048 - 1, exponent));
    }

private:
    std::mt19937 random_{2};
};

/// Doubles with all their digits.
class FullDouble : public Coordinates {
public:
    double next() override { return std::uniform_real_distribution<>(-1, 1)(random_); }

private:
    std::mt19937_64 random_{3};
};

void compare(Coordinates& coordinates, int count) {
    for (int i = 0; i < count; ++i) {
        const Vec3d a = coordinates.point();
        const Vec3d b = coordinates.point();
        const Vec3d c = coordinates.point();
        // Every other time a point that is in the plane but for rounding.
        Vec3d d = coordinates.point();
        if (i % 2 == 1) {
            d = a * 0.5 + b * 0.25 + c * 0.25;
            for (double* x : {&d.x, &d.y, &d.z}) {
                *x = static_cast<double>(static_cast<float>(*x));
            }
        }
        ASSERT_EQ(orient3d(a, b, c, d), slow_orient3d(a, b, c, d)) << "case " << i;
        ASSERT_EQ(orient3d(b, a, c, d), -orient3d(a, b, c, d)) << "case " << i;
        ASSERT_EQ(orient2d({a.x, a.y}, {b.x, b.y}, {d.x, d.y}),
                  slow_orient2d({a.x, a.y}, {b.x, b.y}, {d.x, d.y}))
            << "case " << i;
    }
}

TEST(Predicates, AgreeWithWholeNumbers) {
    Grid at_origin(1, 0);
    compare(at_origin, 2000);
    Grid tiny(0x1p-149, 0);
    compare(tiny, 500);
    Grid far_out(0x1p-3, 1e6 + 0.5);
    compare(far_out, 2000);
    Grid huge(0x1p125, -0x1p126);
    compare(huge, 500);
    AnyFloat any;
    compare(any, 5000);
    FullDouble full;
    compare(full, 2000);
}

// The lowest bit of one coordinate decides, at every place of it, against products of all sizes.
TEST(Predicates, SeeTheLastBit) {
    for (const double size : {0x1p-126, 1.0, 12345.678, 0x1p127}) {
        const auto up = [&](double x) {
            return static_cast<double>(std::nextafter(static_cast<float>(x * size),
                                                      std::numeric_limits<float>::infinity()));
        };
        const double s = static_cast<double>(static_cast<float>(size));
        const Vec3d a{0, 0, 0};
        const Vec3d b{s, s, 0};
        const Vec3d c{0, s, s};
        EXPECT_EQ(orient3d(a, b, c, {s, 2 * (s / 2), 0}), 0);
        EXPECT_EQ(orient3d(a, b, c, {up(1), s, 0}), 1) << size;
        EXPECT_EQ(orient3d(a, b, c, {s, up(1), 0}), -1) << size;
        EXPECT_EQ(orient2d({0, 0}, {s, s}, {s / 2, s / 2}), 0);
        EXPECT_EQ(orient2d({0, 0}, {s, s}, {s / 2, up(0.5)}), 1) << size;
    }
}

}  // namespace
}  // namespace povmesh
