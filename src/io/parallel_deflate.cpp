#include "io/parallel_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <vector>

#include "base/parallel.h"

namespace povmesh {
namespace {

constexpr std::size_t kPartBytes = std::size_t{1} << 20;
constexpr std::size_t kPartsAtATime = 8;

// As far back as a deflate stream can point.
constexpr std::size_t kWindowBytes = std::size_t{1} << 15;

// The text of models says the same thing again after some 40 bytes, with other numbers in it. So
// the fast search of level 1 looks at one candidate only, but enters the places inside of longer
// matches than usual: benchy packs in 54 ms to 2.54 MB, at level 1 as it is in 67 to 2.97, at level
// 6 in 276 to 2.18.
constexpr int kLevel = 1;
constexpr int kGoodLength = 4;  // of no account at this level
constexpr int kLongestEntered = 16;
constexpr int kLongEnough = 16;
constexpr int kCandidates = 1;

// The end of a stream: a last block, of the fixed code, with nothing in it.
constexpr std::array<char, 2> kEnd = {3, 0};

class PartPacker {
public:
    PartPacker() {
        constexpr int kRawWindow = -15;
        constexpr int kUsualMemory = 8;
        if (deflateInit2(&stream_, kLevel, Z_DEFLATED, kRawWindow, kUsualMemory,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
        // With room for the empty block that brings the part to a whole byte.
        packed_.resize(deflateBound(&stream_, kPartBytes) + 16);
    }
    ~PartPacker() { (void)deflateEnd(&stream_); }
    PartPacker(const PartPacker&) = delete;
    PartPacker& operator=(const PartPacker&) = delete;

    void pack(std::span<const char> before, std::span<const char> part) {
        (void)deflateReset(&stream_);
        (void)deflateTune(&stream_, kGoodLength, kLongestEntered, kLongEnough, kCandidates);
        if (!before.empty()) {
            (void)deflateSetDictionary(&stream_, bytes(before), static_cast<uInt>(before.size()));
        }
        stream_.next_in = const_cast<Bytef*>(bytes(part));  // zlib only reads it
        stream_.avail_in = static_cast<uInt>(part.size());
        stream_.next_out = reinterpret_cast<Bytef*>(packed_.data());
        stream_.avail_out = static_cast<uInt>(packed_.size());
        (void)deflate(&stream_, Z_SYNC_FLUSH);
        packed_size_ = packed_.size() - stream_.avail_out;
        crc_ = static_cast<std::uint32_t>(crc32_z(0, bytes(part), part.size()));
    }

    std::span<const char> packed() const { return {packed_.data(), packed_size_}; }
    std::uint32_t crc() const { return crc_; }

private:
    static const Bytef* bytes(std::span<const char> span) {
        return reinterpret_cast<const Bytef*>(span.data());
    }

    z_stream stream_{};
    Array<char> packed_;
    std::size_t packed_size_ = 0;
    std::uint32_t crc_ = 0;
};

// Appends to the text until it has `wanted` bytes or there are no more; `rest` is what is left of
// the last piece.
void fill(const std::function<std::span<const char>()>& next, std::size_t wanted,
          std::span<const char>& rest, Array<char>& text) {
    while (text.size() < wanted) {
        if (rest.empty()) rest = next();
        if (rest.empty()) return;
        const std::size_t count = std::min(rest.size(), wanted - text.size());
        text.insert(text.end(), rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(count));
        rest = rest.subspan(count);
    }
}

}  // namespace

DeflatedBytes deflate_in_parts(const std::function<std::span<const char>()>& next) {
    std::vector<std::unique_ptr<PartPacker>> packers;
    DeflatedBytes result;
    // The parts at hand, behind the window of the first of them.
    Array<char> text;
    text.reserve(kWindowBytes + kPartsAtATime * kPartBytes);
    std::span<const char> rest;
    std::size_t window = 0;
    for (;;) {
        fill(next, window + kPartsAtATime * kPartBytes, rest, text);
        const std::size_t count = (text.size() - window + kPartBytes - 1) / kPartBytes;
        if (count == 0) break;
        while (packers.size() < count) packers.push_back(std::make_unique<PartPacker>());
        const std::span<const char> all(text);
        const auto part = [&](std::size_t i) {
            const std::size_t begin = window + i * kPartBytes;
            return all.subspan(begin, std::min(kPartBytes, all.size() - begin));
        };
        for_blocks(count, [&](std::size_t i) {
            const std::size_t begin = window + i * kPartBytes;
            const std::size_t before = std::min(begin, kWindowBytes);
            packers[i]->pack(all.subspan(begin - before, before), part(i));
        });
        for (std::size_t i = 0; i < count; ++i) {
            const std::span<const char> packed = packers[i]->packed();
            result.bytes.insert(result.bytes.end(), packed.begin(), packed.end());
            const std::size_t size = part(i).size();
            result.crc = static_cast<std::uint32_t>(
                crc32_combine(result.crc, packers[i]->crc(), static_cast<z_off_t>(size)));
            result.size += size;
        }
        const std::size_t kept = std::min(text.size(), kWindowBytes);
        text.erase(text.begin(), text.end() - static_cast<std::ptrdiff_t>(kept));
        window = kept;
    }
    result.bytes.insert(result.bytes.end(), kEnd.begin(), kEnd.end());
    return result;
}

}  // namespace povmesh
