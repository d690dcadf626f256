// Arithmetic on received numbers, which may be anything: it wraps or saturates.
#ifndef PRB_DATA_PRBARITHMETIC_H
#define PRB_DATA_PRBARITHMETIC_H

#include <cmath>
#include <limits>

namespace PRBArithmetic {

inline long long wrappingSum(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) +
                                  static_cast<unsigned long long>(b));
}

inline long long wrappingDifference(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) -
                                  static_cast<unsigned long long>(b));
}

// The nearest integer, halves away from zero; the end of the range beyond it, 0 for no number.
inline long long rounded(double value) {
    constexpr double kEnd = 9223372036854775808.0; // 2 to the 63rd
    if (std::isnan(value)) return 0;
    if (value >= kEnd) return std::numeric_limits<long long>::max();
    if (value <= -kEnd) return std::numeric_limits<long long>::min();
    return std::llround(value);
}

// value * factor / divisor, exact as long as the product fits. REQUIRES: divisor is not 0.
inline long long scaled(long long value, long long factor, long long divisor) {
    long long product;
    if (__builtin_mul_overflow(value, factor, &product) || divisor == -1)
        return rounded(static_cast<double>(value) * static_cast<double>(factor) /
                       static_cast<double>(divisor));
    return product / divisor;
}

} // namespace PRBArithmetic

#endif
