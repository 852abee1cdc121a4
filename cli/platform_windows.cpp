#include <fcntl.h>
#include <io.h>
#include <windows.h>
// Needs the header above.
#include <psapi.h>
#include <shellapi.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "cli/platform.h"

namespace povmesh::cli {
namespace {

std::string utf8(const wchar_t* wide) {
    const int count = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(count), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), count, nullptr, nullptr);
    return text;
}

// The runtime hands over arguments in the code page of the system, which lacks most letters, and
// with patterns replaced by names of files, which a recipe must not see.
void take_arguments(int& argument_count, char**& arguments) {
    static std::vector<std::string> texts;
    static std::vector<char*> pointers;
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr) return;
    for (int i = 0; i < count; ++i) texts.push_back(utf8(wide[i]));
    LocalFree(static_cast<HLOCAL>(wide));
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    argument_count = count;
    arguments = pointers.data();
}

// The console belongs to the user's shell, so it gets back what it had.
struct ConsoleBefore {
    unsigned page = 0;
    HANDLE errors = INVALID_HANDLE_VALUE;
    DWORD mode = 0;
};
ConsoleBefore before;

void restore_console() {
    if (before.page != 0) SetConsoleOutputCP(before.page);
    if (before.errors != INVALID_HANDLE_VALUE) SetConsoleMode(before.errors, before.mode);
}

void prepare_console() {
    before.page = GetConsoleOutputCP();
    if (before.page == 0) return;  // there is none
    SetConsoleOutputCP(CP_UTF8);
    const HANDLE errors = GetStdHandle(STD_ERROR_HANDLE);
    if (GetConsoleMode(errors, &before.mode) != 0) {
        before.errors = errors;
        SetConsoleMode(errors, before.mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
    (void)std::atexit(restore_console);
}

}  // namespace

void prepare_process(int& argument_count, char**& arguments) {
    for (std::FILE* const stream : {stdin, stdout, stderr}) {
        (void)_setmode(_fileno(stream), _O_BINARY);
    }
    take_arguments(argument_count, arguments);
    prepare_console();
}

bool is_terminal(std::FILE* stream) {
    DWORD mode = 0;  // a device such as NUL is none, as opposed to what _isatty says
    return GetConsoleMode(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))), &mode) != 0;
}

double held_bytes() {
    PROCESS_MEMORY_COUNTERS counters{};
    if (K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) == 0) return 0;
    return static_cast<double>(counters.WorkingSetSize);
}

}  // namespace povmesh::cli
