// The second interface: what a call costs that does little, what charging and polling cost, how
// soon a call ends that is to end, and how true the peak is that it tells. Calls on one thread.
//
// Floors: of a small call that of its operation; of charging and polling nothing; of making a mesh
// a copy of the same bytes; of a cancel the longest stretch of work without a poll.
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/job_state.h"
#include "base/parallel.h"
#include "context_calls.h"
#include "inputs.h"
#include "mesh/build_f.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"
#include "repair/detect.h"

namespace povmesh::bench {
namespace {

using Context = std::unique_ptr<povmesh_context, ContextCloser>;
using Mesh = std::unique_ptr<const povmesh_mesh, ContextCloser>;
using Clock = std::chrono::steady_clock;

constexpr int kMoments = 50;
constexpr int kPairs = 9;
const std::string kRock = "rock_1311k";

Context make_context() {
    povmesh_context_options options{};
    options.size = sizeof options;
    options.threads = 1;
    povmesh_context* context = nullptr;
    if (povmesh_context_create(&options, &context) != POVMESH_OK) throw std::bad_alloc();
    return Context(context);
}

Mesh make_mesh(const Context& context, const shapes::SoupVector& soup) {
    povmesh_mesh_data data{};
    data.size = sizeof data;
    data.positions = {soup.data(), soup.size() / 9, 0, POVMESH_F32, 9};
    povmesh_mesh* mesh = nullptr;
    if (povmesh_mesh_create(context.get(), &data, &mesh) != POVMESH_OK) {
        throw std::runtime_error(povmesh_context_message(context.get()));
    }
    return Mesh(mesh);
}

double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// CPU time of a thread: what neighbours on the machine do is not in it.
double cpu_milliseconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void cube(benchmark::State& state, const std::string& name) {
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, shapes::box({0, 0, 0}, {10, 10, 10}));
    const ContextCall call = context_call(name);
    for (auto _ : state) benchmark::DoNotOptimize(call.run(context.get(), mesh.get()));
}

// The arrays of a mesh lie in records of 16 and 36 bytes; beside it a copy of as many bytes, into
// memory that is as new.
void create(benchmark::State& state, const std::string& input) {
    const Context context = make_context();
    const TriMesh& source = bench::mesh(input);
    std::vector<float> positions;
    std::vector<std::uint32_t> faces;
    for (const Vertex& v : source.vertices) {
        for (const float x : {v.position.x, v.position.y, v.position.z}) positions.push_back(x);
    }
    for (const Face& face : source.faces) {
        for (const std::int32_t v : face.vertex) faces.push_back(static_cast<std::uint32_t>(v));
    }
    povmesh_mesh_data data{};
    data.size = sizeof data;
    data.positions = {positions.data(), positions.size() / 3, 0, POVMESH_F32, 3};
    data.faces = {faces.data(), faces.size() / 3, 0, POVMESH_U32, 3};
    std::vector<double> copies;
    std::vector<double> larger_copies;
    std::vector<double> made;
    const auto timed = [](const auto& work) {
        const double begin = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
        work();
        return cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID) - begin;
    };
    const auto copy = [&](std::size_t bytes_of_positions, std::size_t bytes_of_faces) {
        return timed([&] {
            const auto to = [](const void* from, std::size_t from_bytes, std::size_t bytes) {
                const std::unique_ptr<char[]> block(new char[bytes]);
                for (std::size_t at = 0; at < bytes; at += from_bytes) {
                    std::memcpy(block.get() + at, from, std::min(from_bytes, bytes - at));
                }
                benchmark::DoNotOptimize(block.get());
                benchmark::ClobberMemory();
            };
            to(positions.data(), positions.size() * sizeof(float), bytes_of_positions);
            to(faces.data(), faces.size() * sizeof(std::uint32_t), bytes_of_faces);
        });
    };
    for (auto _ : state) {
        copies.push_back(copy(positions.size() * 4, faces.size() * 4));
        larger_copies.push_back(
            copy(source.vertices.size() * sizeof(Vertex), source.faces.size() * sizeof(Face)));
        made.push_back(timed([&] {
            povmesh_mesh* mesh = nullptr;
            if (povmesh_mesh_create(context.get(), &data, &mesh) != POVMESH_OK) std::abort();
            povmesh_mesh_release(mesh);
        }));
    }
    state.counters["cpu_ms"] = median(made);
    state.counters["memcpy_in_ms"] = median(copies);
    state.counters["memcpy_out_ms"] = median(larger_copies);
    state.counters["times_memcpy_in"] = median(made) / median(copies);
    state.counters["times_memcpy_out"] = median(made) / median(larger_copies);
}

using Step = void (*)(TriMesh& mesh);

void step_build(TriMesh& mesh) {
    ByteSoup soup{.triangle_count = triangle_count(kRock)};
    soup.coordinates = bench::soup(kRock).data();
    mesh = TriMesh();
    build_f(mesh, soup);
}
void step_detect(TriMesh& mesh) {
    benchmark::DoNotOptimize(povmesh::detect(mesh));
}
void step_reduce(TriMesh& mesh) {
    povmesh::reduce(mesh, {.keep = 0.5});
}
void step_remesh(TriMesh& mesh) {
    RunLog log;
    RunContext run{{}, log};
    RemeshOptions options;
    options.edge_length = 0.3;
    (void)povmesh::remesh(mesh, options, run);
}

// Turn by turn without and with a job, so that what else the machine does falls on both.
void cost(benchmark::State& state, const std::string& name) {
    Step step = step_build;
    if (name == "detect") step = step_detect;
    if (name == "reduce") step = step_reduce;
    if (name == "remesh") step = step_remesh;
    std::atomic<std::uint32_t> wish = 0;
    const OneThread alone;
    const auto turn = [&](bool has_job) {
        TriMesh copy = bench::mesh(kRock);
        JobSettings settings;
        settings.wish = &wish;
        settings.memory_limit = std::uint64_t{1} << 40;
        JobState job(settings);
        const double begin = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
        {
            const JobScope scope(has_job ? &job : nullptr);
            step(copy);
        }
        return cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID) - begin;
    };
    (void)turn(true);
    std::vector<double> without;
    std::vector<double> with;
    std::vector<double> shares;
    for (auto _ : state) {
        for (int i = 0; i < kPairs; ++i) {
            // The first of two may find other caches and pages than the second.
            const bool has_job_first = i % 2 == 1;
            const double first = turn(has_job_first);
            const double second = turn(!has_job_first);
            without.push_back(has_job_first ? second : first);
            with.push_back(has_job_first ? first : second);
            shares.push_back(with.back() / without.back());
        }
    }
    state.counters["without_ms"] = median(without);
    state.counters["with_ms"] = median(with);
    state.counters["more_percent"] = 100 * (median(shares) - 1);
}

// From the wish to the return, at random moments of the call.
void cancel(benchmark::State& state, const std::string& name) {
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, bench::soup(kRock));
    const ContextCall call = context_call(name);
    clockid_t own_clock{};
    pthread_getcpuclockid(pthread_self(), &own_clock);
    const Clock::time_point begin = Clock::now();
    const povmesh_status whole = call.run(context.get(), mesh.get());
    if (whole != POVMESH_OK && whole != POVMESH_NOTHING) {
        state.SkipWithError(povmesh_context_message(context.get()));
        return;
    }
    const Clock::duration length = Clock::now() - begin;
    std::mt19937 random(20);
    std::vector<double> waits;
    std::vector<double> cpu_waits;
    for (auto _ : state) {
        for (int i = 0; i < kMoments; ++i) {
            const double share = std::generate_canonical<double, 53>(random);
            const auto moment = std::chrono::duration_cast<Clock::duration>(length * share);
            Clock::time_point wished;
            double cpu_wished = 0;
            std::thread other([&] {
                std::this_thread::sleep_for(moment);
                wished = Clock::now();
                cpu_wished = cpu_milliseconds(own_clock);
                povmesh_context_cancel(context.get());
            });
            const povmesh_status status = call.run(context.get(), mesh.get());
            const Clock::time_point back = Clock::now();
            const double cpu_back = cpu_milliseconds(own_clock);
            other.join();
            povmesh_context_resume(context.get());
            if (status != POVMESH_CANCELLED) continue;  // it was done before
            waits.push_back(milliseconds(back - wished));
            cpu_waits.push_back(cpu_back - cpu_wished);
        }
    }
    if (waits.empty()) return;
    state.counters["call_ms"] = milliseconds(length);
    state.counters["moments"] = static_cast<double>(waits.size());
    state.counters["median_ms"] = median(waits);
    state.counters["worst_ms"] = *std::max_element(waits.begin(), waits.end());
    state.counters["worst_cpu_ms"] = *std::max_element(cpu_waits.begin(), cpu_waits.end());
}

double status_bytes(const std::string& key) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key)) return 1024 * std::stod(line.substr(key.size() + 1));
    }
    return 0;
}

// In a process of its own: how much it grew, and what the call told.
int tell_peak(const std::string& name, const std::string& input) {
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, bench::soup(input));
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
    const double before = status_bytes("VmRSS");
    const povmesh_status status = context_call(name).run(context.get(), mesh.get());
    const double after = status_bytes("VmHWM");
    if (status != POVMESH_OK) return 1;
    std::cout << after - before << ' ' << povmesh_context_peak_bytes(context.get()) << '\n';
    return 0;
}

std::string this_program;

void peak(benchmark::State& state, const std::string& name) {
    const std::string result = scratch_file("peak.txt");
    const std::string command =
        "'" + this_program + "' --peak " + name + " " + kRock + " > '" + result + "'";
    double grown = 0;
    double told = 0;
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0 || !(std::ifstream(result) >> grown >> told)) {
            state.SkipWithError("no result for this model");
            return;
        }
    }
    state.counters["grown_mb"] = grown / 1e6;
    state.counters["told_mb"] = told / 1e6;
    state.counters["told_percent"] = 100 * told / grown;
}

void add_once(const std::string& operation, const std::vector<std::string>& names,
              Function function) {
    for (const std::string& name : names) {
        const auto run = [function, name](benchmark::State& state) { function(state, name); };
        benchmark::RegisterBenchmark((operation + "/" + name).c_str(), run)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1)
            ->Repetitions(1)
            ->UseRealTime();
    }
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    if (argc == 4 && std::string(argv[1]) == "--peak") return tell_peak(argv[2], argv[3]);
    this_program = argv[0];
    std::vector<std::string> names;
    for (const ContextCall& call : context_calls()) names.emplace_back(call.name);
    add_named("cube", {"repair", "check", "stl"}, cube);
    add("create", {"rock_82k", "rock_1311k"}, create);
    add_once("cost", {"build_f", "detect", "reduce", "remesh"}, cost);
    add_once("cancel", names, cancel);
    add_once("peak", names, peak);
    return run(argc, argv);
}
