#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

#include "cli/platform.h"

namespace povmesh::cli {

void prepare_process(int& /*argument_count*/, char**& /*arguments*/) {}

bool is_terminal(std::FILE* stream) {
    return isatty(fileno(stream)) != 0;
}

double held_bytes() {
#if defined(__linux__)
    // What a program held before it became this one counts in its peak, so that is of no use here.
    std::ifstream file("/proc/self/statm");
    double all = 0;
    double resident = 0;
    file >> all >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
#else
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
#endif
}

}  // namespace povmesh::cli
