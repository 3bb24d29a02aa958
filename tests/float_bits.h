// Bit-exact comparison of floating-point results for the tests.
#ifndef VRNCAL_TESTS_FLOAT_BITS_H
#define VRNCAL_TESTS_FLOAT_BITS_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

namespace vrncal_test {

inline std::uint32_t bitsOf(float v) {
    std::uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

inline std::uint64_t bitsOf(double v) {
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// Same bits, or both NaN (NaN payloads are not part of the behaviour).
template <typename T>
::testing::AssertionResult sameBits(T expected, T actual) {
    if ((std::isnan(expected) && std::isnan(actual)) || bitsOf(expected) == bitsOf(actual))
        return ::testing::AssertionSuccess();
    std::ostringstream s;
    s << std::hexfloat << "expected " << expected << ", got " << actual;
    return ::testing::AssertionFailure() << s.str();
}

}  // namespace vrncal_test

#define EXPECT_SAME_BITS(expected, actual) EXPECT_TRUE(::vrncal_test::sameBits(expected, actual))

#endif
