// The second interface: what a call costs that does little, what charging and polling cost, how
// soon a call ends that is to end, and how true the peak is that it tells. Calls on one thread.
//
// Floors: of a small call that of its operation; of charging and polling nothing; of making a mesh
// a copy of the same bytes; of a cancel the longest stretch of work without a poll.
//
// "context_bench --where OPERATION INPUT" tells the longest of these, and where they begin and end:
// addresses of this program, for addr2line.
#include <execinfo.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
#include "context/handles.h"
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
const std::string kLargeRock = "rock_1311k";
const std::string kSmallerRock = "rock_328k";  // for calls that take minutes on the other

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
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(call.run(context.get(), mesh.get()));
}

// Memory as the system gives it: its pages are there when they are first written.
class NewPages {
public:
    explicit NewPages(std::size_t bytes)
        : bytes_(bytes),
          data_(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (data_ == MAP_FAILED) throw std::bad_alloc();
    }
    ~NewPages() { munmap(data_, bytes_); }
    NewPages(const NewPages&) = delete;
    NewPages& operator=(const NewPages&) = delete;
    char* data() const { return static_cast<char*>(data_); }

private:
    std::size_t bytes_;
    void* data_;
};

// Beside copies: of what is given, 24 bytes a face, into memory that is there and into such that is
// new, as a mesh's is; and of as many bytes as the mesh has, 44 a face, in records of 16 and 36.
void create(benchmark::State& state, const std::string& input) {
    const Context context = make_context();
    const TriMesh& source = bench::mesh(input);
    std::vector<float> positions;
    std::vector<std::uint32_t> faces;
    for (const Vertex& v : source.vertices) {
        for (const float x : {v.x, v.y, v.z}) positions.push_back(x);
    }
    for (const Face& face : source.faces) {
        for (const std::int32_t v : face.vertex) faces.push_back(static_cast<std::uint32_t>(v));
    }
    povmesh_mesh_data data{};
    data.size = sizeof data;
    data.positions = {positions.data(), positions.size() / 3, 0, POVMESH_F32, 3};
    data.faces = {faces.data(), faces.size() / 3, 0, POVMESH_U32, 3};
    const auto timed = [](const auto& work) {
        const double begin = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
        work();
        return cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID) - begin;
    };
    // The source again and again where it is the shorter one.
    const auto copy = [](const auto& from, char* to, std::size_t bytes) {
        const std::size_t from_bytes = from.size() * sizeof from[0];
        for (std::size_t at = 0; at < bytes; at += from_bytes) {
            std::memcpy(to + at, from.data(), std::min(from_bytes, bytes - at));
        }
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
    };
    const std::size_t in_positions = positions.size() * sizeof(float);
    const std::size_t in_faces = faces.size() * sizeof(std::uint32_t);
    const auto copy_to_new = [&](std::size_t position_bytes, std::size_t face_bytes) {
        return timed([&] {
            const NewPages a(position_bytes);
            const NewPages b(face_bytes);
            copy(positions, a.data(), position_bytes);
            copy(faces, b.data(), face_bytes);
        });
    };
    std::vector<char> there(in_positions + in_faces);
    std::vector<double> in_there;
    std::vector<double> in_new;
    std::vector<double> out_new;
    std::vector<double> made;
    for ([[maybe_unused]] auto _ : state) {
        in_there.push_back(timed([&] {
            copy(positions, there.data(), in_positions);
            copy(faces, there.data() + in_positions, in_faces);
        }));
        in_new.push_back(copy_to_new(in_positions, in_faces));
        out_new.push_back(copy_to_new(source.vertices.size() * sizeof(Vertex),
                                      source.faces.size() * sizeof(Face)));
        made.push_back(timed([&] {
            povmesh_mesh* mesh = nullptr;
            if (povmesh_mesh_create(context.get(), &data, &mesh) != POVMESH_OK) std::abort();
            povmesh_mesh_release(mesh);
        }));
    }
    state.counters["cpu_ms"] = median(made);
    state.counters["in_there_ms"] = median(in_there);
    state.counters["in_new_ms"] = median(in_new);
    state.counters["out_new_ms"] = median(out_new);
    state.counters["times_in_there"] = median(made) / median(in_there);
    state.counters["times_in_new"] = median(made) / median(in_new);
    state.counters["times_out_new"] = median(made) / median(out_new);
}

using Step = void (*)(TriMesh& mesh, const std::string& input);

void step_build(TriMesh& mesh, const std::string& input) {
    ByteSoup soup{.triangle_count = triangle_count(input)};
    soup.coordinates = bench::soup(input).data();
    mesh = TriMesh();
    build_f(mesh, soup);
}
void step_detect(TriMesh& mesh, const std::string& /*input*/) {
    benchmark::DoNotOptimize(povmesh::detect(mesh));
}
void step_reduce(TriMesh& mesh, const std::string& /*input*/) {
    povmesh::reduce(mesh, {.keep = 0.5});
}
void step_remesh(TriMesh& mesh, const std::string& /*input*/) {
    RunLog log;
    RunContext run{{}, log};
    RemeshOptions options;
    options.edge_length = 0.3;
    (void)povmesh::remesh(mesh, options, run);
}

// Turn by turn without and with a job, so that what else the machine does falls on both. The job
// has all that a call can have: a limit, a wish to look at, and somebody who is told how far it is.
void cost(benchmark::State& state, const std::string& name, const std::string& input) {
    Step step = step_build;
    if (name == "detect") step = step_detect;
    if (name == "reduce") step = step_reduce;
    if (name == "remesh") step = step_remesh;
    std::atomic<std::uint32_t> wish = 0;
    const OneThread alone;
    const auto turn = [&](bool has_job) {
        TriMesh copy = bench::mesh(input);
        JobSettings settings;
        settings.wish = &wish;
        settings.memory_limit = std::uint64_t{1} << 40;
        settings.report = [](void*, double, const char*) { return false; };
        JobState job(settings);
        const double begin = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
        {
            const JobScope scope(has_job ? &job : nullptr);
            step(copy, input);
        }
        return cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID) - begin;
    };
    (void)turn(true);
    std::vector<double> without;
    std::vector<double> with;
    std::vector<double> shares;
    for ([[maybe_unused]] auto _ : state) {
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
    // Half of the pairs lie between these.
    std::sort(shares.begin(), shares.end());
    state.counters["from_percent"] = 100 * (shares[shares.size() / 4] - 1);
    state.counters["to_percent"] = 100 * (shares[shares.size() * 3 / 4] - 1);
}

// The longest stretches of a call without a poll, and the stacks at both ends.
class Stretches {
public:
    // Of a call on this thread; keeping stacks costs microseconds a poll.
    povmesh_status run(povmesh_context* context, const povmesh_mesh* mesh, const ContextCall& call,
                       bool keeps_stacks) {
        current = this;
        keeps_stacks_ = keeps_stacks;
        FaultPlan plan;
        plan.on_poll = [] { current->look(); };
        context->faults = &plan;
        last_ = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
        const povmesh_status status = call.run(context, mesh);
        look();
        context->faults = nullptr;
        std::sort(all_.begin(), all_.end(), [](const Stretch& a, const Stretch& b) {
            return a.milliseconds > b.milliseconds;
        });
        return status;
    }

    double longest() const { return all_.empty() ? 0 : all_.front().milliseconds; }
    std::uint64_t polls() const { return polls_; }

    void print() const {
        constexpr std::size_t kMost = 16;
        for (std::size_t i = 0; i < std::min(all_.size(), kMost); ++i) {
            std::printf("%.1f ms, from\n", all_[i].milliseconds);
            print(all_[i].begin);
            std::printf("to\n");
            print(all_[i].end);
        }
    }

private:
    using Stack = std::array<void*, 24>;
    struct Stretch {
        double milliseconds;
        Stack begin, end;
    };
    static constexpr double kTold = 5;  // milliseconds

    static void print(const Stack& stack) {
        std::fflush(stdout);
        const auto size = std::find(stack.begin(), stack.end(), nullptr) - stack.begin();
        backtrace_symbols_fd(stack.data(), static_cast<int>(size), STDOUT_FILENO);
    }

    void look() {
        ++polls_;
        const double now = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
        Stack here{};
        if (keeps_stacks_) (void)backtrace(here.data(), static_cast<int>(here.size()));
        if (now - last_ >= kTold) all_.push_back({now - last_, stack_, here});
        stack_ = here;
        last_ = cpu_milliseconds(CLOCK_THREAD_CPUTIME_ID);
    }

    static inline Stretches* current = nullptr;  // of the only call that is looked at
    std::vector<Stretch> all_;
    Stack stack_{};
    double last_ = 0;
    std::uint64_t polls_ = 0;
    bool keeps_stacks_ = false;
};

// What a cancel waits for at most, whenever it comes: the longest stretch of a whole call.
void stretch(benchmark::State& state, const std::string& name, const std::string& input) {
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, bench::soup(input));
    Stretches stretches;
    for ([[maybe_unused]] auto _ : state) {
        const povmesh_status status =
            stretches.run(context.get(), mesh.get(), context_call(name), false);
        if (status != POVMESH_OK && status != POVMESH_NOTHING) {
            state.SkipWithError(povmesh_context_message(context.get()));
            return;
        }
    }
    state.counters["polls"] = static_cast<double>(stretches.polls());
    state.counters["longest_ms"] = stretches.longest();
}

int tell_stretches(const std::string& name, const std::string& input) {
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, bench::soup(input));
    Stretches stretches;
    const povmesh_status status =
        stretches.run(context.get(), mesh.get(), context_call(name), true);
    std::printf("%s on %s: %s, %llu polls\n", name.c_str(), input.c_str(),
                povmesh_status_text(status), static_cast<unsigned long long>(stretches.polls()));
    stretches.print();
    return 0;
}

// From the wish to the return, at random moments of the call.
void cancel(benchmark::State& state, const std::string& name, const std::string& input) {
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, bench::soup(input));
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
    for ([[maybe_unused]] auto _ : state) {
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
    state.counters["median_cpu_ms"] = median(cpu_waits);
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
    // What is given back leaves the process at once: the growth is what was taken, not what the C
    // library keeps for later. From the start, lest holes between older blocks are used again: the
    // system fills those by huge pages, past the end of what is taken.
    mallopt(M_MMAP_THRESHOLD, 64 << 10);
    mallopt(M_TRIM_THRESHOLD, 64 << 10);
    const Context context = make_context();
    const Mesh mesh = make_mesh(context, bench::soup(input));
    povmesh_write_options format = povmesh_write_defaults();
    void* data = nullptr;
    std::size_t bytes = 0;
    const auto write = [&] {
        return povmesh_write_memory(context.get(), mesh.get(), &format, &data, &bytes, nullptr);
    };
    const std::string kind = name.substr(name.find('_') + 1);
    if (kind != name) format.format = kind.c_str();
    if (name.starts_with("read_") && write() != POVMESH_OK) return 1;
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
    const double before = status_bytes("VmRSS");
    povmesh_status status = POVMESH_OK;
    povmesh_mesh* read = nullptr;
    if (name.starts_with("read_")) {
        status = povmesh_read_memory(context.get(), data, bytes, nullptr, &read, nullptr);
    } else if (name.starts_with("write_")) {
        status = write();
    } else {
        status = context_call(name).run(context.get(), mesh.get());
    }
    const double after = status_bytes("VmHWM");
    if (status != POVMESH_OK) return 1;
    povmesh_mesh_release(read);
    povmesh_free(data);
    std::cout << after - before << ' ' << povmesh_context_peak_bytes(context.get()) << '\n';
    return 0;
}

std::string this_program;

void peak(benchmark::State& state, const std::string& name, const std::string& input) {
    const std::string result = scratch_file("peak.txt");
    std::string command = "'";
    command.append(this_program).append("' --peak ").append(name).append(" ").append(input);
    command.append(" > '").append(result).append("'");
    double grown = 0;
    double told = 0;
    for ([[maybe_unused]] auto _ : state) {
        if (std::system(command.c_str()) != 0 || !(std::ifstream(result) >> grown >> told)) {
            state.SkipWithError("no result for this model");
            return;
        }
    }
    state.counters["grown_mb"] = grown / 1e6;
    state.counters["told_mb"] = told / 1e6;
    state.counters["told_percent"] = 100 * told / grown;
}

using OnInput = void (*)(benchmark::State& state, const std::string& name,
                         const std::string& input);
void add_once(const std::string& operation, const std::vector<std::string>& names,
              const std::string& input, OnInput function) {
    for (const std::string& name : names) {
        const auto run = [=](benchmark::State& state) { function(state, name, input); };
        std::string title = operation;
        title.append("/").append(input).append("/").append(name);
        benchmark::RegisterBenchmark(title.c_str(), run)
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
    if (argc == 4 && std::string(argv[1]) == "--where") return tell_stretches(argv[2], argv[3]);
    this_program = argv[0];
    std::vector<std::string> names;
    for (const ContextCall& call : context_calls()) names.emplace_back(call.name);
    add_named("cube", {"repair", "check", "stl"}, cube);
    add("create", {"rock_82k", "rock_1311k"}, create);
    // There and back is two calls, and the second one alone is told.
    std::vector<std::string> single_calls;
    for (const std::string& name : names) {
        if (povmesh_has(("write:" + name).c_str()) == 0) {
            single_calls.push_back(name);
        } else {
            single_calls.push_back("read_" + name);
            single_calls.push_back("write_" + name);
        }
    }
    for (const std::string& rock : {kLargeRock, kSmallerRock}) {
        add_once("cost", {"build_f", "detect", "reduce", "remesh"}, rock, cost);
        add_once("stretch", names, rock, stretch);
        add_once("cancel", names, rock, cancel);
        add_once("peak", single_calls, rock, peak);
    }
    return run(argc, argv);
}
