// Owner of an admesh model, for the benchmarks that compare with it.
#pragma once

#include <admesh/stl.h>

// The header leaves its macros behind.
#undef ABS
#undef STL_MAX
#undef STL_MIN

#include <stdexcept>
#include <string>

namespace povmesh::bench {

/// stl_open counts the facets by the file size, reads them one fread each, and on the way keeps the
/// box and the shortest edge; facets and (empty) neighbour records are allocated zeroed.
class AdmeshFile {
public:
    explicit AdmeshFile(std::string path) {
        stl_open(&stl_, path.data());
        if (stl_get_error(&stl_) != 0) throw std::runtime_error("admesh cannot read " + path);
    }
    ~AdmeshFile() { stl_close(&stl_); }
    AdmeshFile(const AdmeshFile&) = delete;
    AdmeshFile& operator=(const AdmeshFile&) = delete;

    stl_file& get() { return stl_; }

private:
    stl_file stl_{};
};

}  // namespace povmesh::bench
