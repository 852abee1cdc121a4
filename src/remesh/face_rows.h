// The faces at each vertex while edges collapse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "base/array.h"
#include "base/poll.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Rows of face numbers in one pool, a row per vertex. A row may still name faces that are gone:
/// whoever reads it takes them out.
class FaceRows {
public:
    explicit FaceRows(const UseTable& table) {
        const std::size_t vertex_count = table.offsets.size() - 1;
        starts_.resize(vertex_count);
        sizes_.resize(vertex_count);
        pool_.reserve(table.uses.size() + table.uses.size() / 4 + kSpare);
        for (std::size_t v = 0; v < vertex_count; ++v) {
            poll_at(v);
            starts_[v] = pool_.size();
            for (const Use& use : table.row(v)) pool_.push_back(use.face());
            sizes_[v] = static_cast<std::uint32_t>(pool_.size() - starts_[v]);
        }
    }

    std::span<std::uint32_t> row(std::size_t vertex) {
        return {pool_.data() + starts_[vertex], sizes_[vertex]};
    }
    void shorten(std::size_t vertex, std::size_t size) {
        sizes_[vertex] = static_cast<std::uint32_t>(size);
    }

    /// Row b joins row a. Both are read beforehand, so that they name live faces only.
    void join(std::size_t a, std::size_t b) {
        const std::size_t size = std::size_t{sizes_[a]} + sizes_[b];
        if (pool_.size() + size > pool_.capacity()) pack(size);
        const bool is_last = starts_[a] + sizes_[a] == pool_.size();
        if (!is_last) {
            const std::size_t start = pool_.size();
            append(a);
            starts_[a] = start;
        }
        append(b);
        sizes_[a] = static_cast<std::uint32_t>(size);
        sizes_[b] = 0;
    }

private:
    static constexpr std::size_t kSpare = 1024;

    void append(std::size_t vertex) {
        for (std::size_t i = 0; i < sizes_[vertex]; ++i) {
            pool_.push_back(pool_[starts_[vertex] + i]);
        }
    }

    // Moves the rows together, with room for as much as half of what they hold.
    void pack(std::size_t needed) {
        std::size_t held = 0;
        for (const std::uint32_t size : sizes_) held += size;
        Array<std::uint32_t> packed;
        packed.reserve(held + held / 2 + 4 * needed);
        for (std::size_t v = 0; v < starts_.size(); ++v) {
            const std::size_t start = packed.size();
            packed.insert(packed.end(), pool_.begin() + static_cast<std::ptrdiff_t>(starts_[v]),
                          pool_.begin() + static_cast<std::ptrdiff_t>(starts_[v] + sizes_[v]));
            starts_[v] = start;
        }
        pool_ = std::move(packed);
    }

    Array<std::size_t> starts_;
    Array<std::uint32_t> sizes_;
    Array<std::uint32_t> pool_;
};

}  // namespace povmesh
