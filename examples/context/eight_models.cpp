// Repairs models on eight threads, each with a context of its own.
//
// usage: eight_models FOLDER IN...
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "povmesh/povmesh.hpp"

namespace {

std::string repair(const povmesh::Context& context, const std::string& in,
                   const std::filesystem::path& folder) {
    try {
        const povmesh::Mesh mesh = povmesh::Mesh::read(context, in);
        povmesh::Report<povmesh_check_report> before, after;
        (void)mesh.check(context, {}, &before);
        const povmesh::Mesh repaired = mesh.repair(context);
        (void)repaired.check(context, {}, &after);
        repaired.write(context, (folder / std::filesystem::path(in).filename()).string());
        return std::to_string(before.open_edges) + " open edges before, " +
               std::to_string(after.open_edges) + " after";
    } catch (const povmesh::OutOfMemory&) {
        return "too large for a gigabyte";
    } catch (const povmesh::Error& error) {
        return error.what();
    }
}

}  // namespace

int main(int argument_count, char** arguments) {
    if (argument_count < 3) {
        std::fprintf(stderr, "usage: %s FOLDER IN...\n", arguments[0]);
        return 2;
    }
    const std::vector<std::string> models(arguments + 2, arguments + argument_count);
    std::vector<std::string> told(models.size());
    std::atomic<std::size_t> next = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            const povmesh::Context context(1, std::uint64_t{1} << 30);  // threads, bytes
            for (std::size_t m = next++; m < models.size(); m = next++) {
                told[m] = repair(context, models[m], arguments[1]);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::size_t m = 0; m < models.size(); ++m) {
        std::printf("%s: %s\n", models[m].c_str(), told[m].c_str());
    }
}
