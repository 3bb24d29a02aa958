// Draws typed values from a fuzz input, front to back; zeros once it is used
// up.  Floats come either from a palette of values the correction treats
// specially (0, -0, 1, infinities, NaN, tiny, huge, the field edges) or from
// raw bits.
#ifndef VRNCAL_FUZZ_BYTE_SOURCE_H
#define VRNCAL_FUZZ_BYTE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace vrncal_check {

class ByteSource {
public:
    ByteSource(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    std::size_t remaining() const { return size_ - pos_; }

    template <typename T>
    T raw() {
        T v{};
        const std::size_t n = remaining() < sizeof v ? remaining() : sizeof v;
        if (n > 0) std::memcpy(&v, data_ + pos_, n);
        pos_ += n;
        return v;
    }

    // An integer in [lo, hi].
    int range(int lo, int hi) {
        const std::uint32_t span = static_cast<std::uint32_t>(hi - lo) + 1u;
        return lo + static_cast<int>(raw<std::uint32_t>() % span);
    }

    bool flag() { return (raw<std::uint8_t>() & 1) != 0; }

    double real(double typical) {
        const std::uint8_t pick = raw<std::uint8_t>();
        const double inf = std::numeric_limits<double>::infinity();
        switch (pick % 16) {
            case 0: return 0.0;
            case 1: return -0.0;
            case 2: return 1.0;
            case 3: return inf;
            case 4: return -inf;
            case 5: return std::numeric_limits<double>::quiet_NaN();
            case 6: return std::numeric_limits<double>::denorm_min();
            case 7: return 1e300;
            case 8: return typical;
            case 9: return -typical;
            case 10: return raw<double>();
            case 11: return static_cast<double>(raw<float>());
            default: return typical * (static_cast<double>(raw<std::int16_t>()) / 16384.0);
        }
    }

    float single(double typical) { return static_cast<float>(real(typical)); }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

}  // namespace vrncal_check

#endif
