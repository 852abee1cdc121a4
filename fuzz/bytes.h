// The input of a fuzz target, byte by byte; zeros behind its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    std::size_t left() const { return size_; }
    std::uint8_t next() {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }
    /// One of few multiples of `size`, so that coordinates meet.
    float step(float size, unsigned count = 32) {
        return size * static_cast<float>(next() % count);
    }
    /// Any bits: infinities, NaN, denormals.
    float any() {
        std::uint32_t bits = 0;
        for (int i = 0; i < 4; ++i) bits = bits << 8 | next();
        float number = 0;
        std::memcpy(&number, &bits, sizeof(number));
        return number;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};
