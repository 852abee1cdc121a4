#include "base/predicates.h"

#include <array>
#include <cstddef>

// The exact value of a determinant as an expansion: an unevaluated sum of doubles that do not
// overlap (no two share a bit position) and grow in magnitude, so that the last one has the sign of
// the sum. Zero terms are left out. With coordinates of few bits, as floats of similar size have,
// most error terms are zero and the sums stay short.
//
// The theorems that the steps rest on (round to nearest, ties to even; -ffp-contract=off): 7
// two_sum, 18 two_product, 12 expansion sum, 19 scaling of an expansion.
namespace povmesh::detail {
namespace {

struct Pair {
    double high, low;  // high + low is the exact result, high the rounded one
};

Pair two_sum(double a, double b) {
    const double sum = a + b;
    const double b_part = sum - a;
    const double a_part = sum - b_part;
    return {sum, (a - a_part) + (b - b_part)};
}

// Two halves of at most 26 bits.
Pair split(double a) {
    const double shifted = 0x1.0000002p27 * a;  // 2^27 + 1
    const double high = shifted - (shifted - a);
    return {high, a - high};
}

Pair two_product(double a, double b) {
    const double product = a * b;
    const Pair x = split(a);
    const Pair y = split(b);
    const double error = ((product - x.high * y.high) - x.low * y.high) - x.high * y.low;
    return {product, x.low * y.low - error};
}

template <std::size_t N>
struct Expansion {
    std::array<double, N> terms;
    std::size_t size = 0;

    void add_term(double term) {
        if (term != 0) terms[size++] = term;
    }
    int sign() const {
        if (size == 0) return 0;
        return terms[size - 1] > 0 ? 1 : -1;
    }
};

Expansion<2> difference(double a, double b) {
    const Pair pair = two_sum(a, -b);
    Expansion<2> result;
    result.add_term(pair.low);
    result.add_term(pair.high);
    return result;
}

template <std::size_t M, std::size_t N>
Expansion<M + N> sum(const Expansion<M>& a, const Expansion<N>& b) {
    Expansion<M + N> result;
    for (std::size_t i = 0; i < a.size; ++i) result.terms[i] = a.terms[i];
    result.size = a.size;
    for (std::size_t i = 0; i < b.size; ++i) {
        double carry = b.terms[i];
        const std::size_t old_size = result.size;
        result.size = 0;
        for (std::size_t j = 0; j < old_size; ++j) {
            const Pair pair = two_sum(carry, result.terms[j]);
            result.add_term(pair.low);  // writes at j or below
            carry = pair.high;
        }
        result.add_term(carry);
    }
    return result;
}

template <std::size_t N>
Expansion<2 * N> scaled(const Expansion<N>& a, double factor) {
    Expansion<2 * N> result;
    if (a.size == 0) return result;
    Pair carry = two_product(a.terms[0], factor);
    result.add_term(carry.low);
    for (std::size_t i = 1; i < a.size; ++i) {
        const Pair product = two_product(a.terms[i], factor);
        const Pair low = two_sum(carry.high, product.low);
        result.add_term(low.low);
        carry = two_sum(product.high, low.high);
        result.add_term(carry.low);
    }
    result.add_term(carry.high);
    return result;
}

template <std::size_t N>
Expansion<4 * N> product(const Expansion<N>& a, const Expansion<2>& b) {
    Expansion<4 * N> result;
    if (b.size == 0) return result;
    if (b.size == 2) return sum(scaled(a, b.terms[0]), scaled(a, b.terms[1]));
    const Expansion<2 * N> single = scaled(a, b.terms[0]);
    for (std::size_t i = 0; i < single.size; ++i) result.terms[i] = single.terms[i];
    result.size = single.size;
    return result;
}

template <std::size_t N>
Expansion<N> negated(Expansion<N> a) {
    for (std::size_t i = 0; i < a.size; ++i) a.terms[i] = -a.terms[i];
    return a;
}

Expansion<16> minor(const Expansion<2>& a, const Expansion<2>& b, const Expansion<2>& c,
                    const Expansion<2>& d) {
    return sum(product(a, d), negated(product(b, c)));
}

}  // namespace

int orient2d_exact(Point2d a, Point2d b, Point2d c) {
    return minor(difference(a.x, c.x), difference(a.y, c.y), difference(b.x, c.x),
                 difference(b.y, c.y))
        .sign();
}

int orient3d_exact(Vec3d a, Vec3d b, Vec3d c, Vec3d d) {
    const Expansion<2> vx = difference(c.x, a.x);
    const Expansion<2> vy = difference(c.y, a.y);
    const Expansion<2> vz = difference(c.z, a.z);
    const Expansion<2> wx = difference(d.x, a.x);
    const Expansion<2> wy = difference(d.y, a.y);
    const Expansion<2> wz = difference(d.z, a.z);
    const Expansion<64> x = product(minor(vy, vz, wy, wz), difference(b.x, a.x));
    const Expansion<64> y = product(minor(vz, vx, wz, wx), difference(b.y, a.y));
    const Expansion<64> z = product(minor(vx, vy, wx, wy), difference(b.z, a.z));
    return sum(sum(x, y), z).sign();
}

}  // namespace povmesh::detail
