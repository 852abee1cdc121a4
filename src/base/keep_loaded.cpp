#include "base/keep_loaded.h"

#if defined(_WIN32)
#include <windows.h>
#elif defined(__linux__)
#include <dlfcn.h>
#endif

namespace povmesh {

bool keep_loaded(const void* code) {
#if defined(_WIN32)
    HMODULE module = nullptr;
    constexpr DWORD kHow = GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;
    return GetModuleHandleExW(kHow, static_cast<LPCWSTR>(code), &module) != 0;
#elif defined(__linux__)
    Dl_info library{};
    if (dladdr(code, &library) == 0) return false;
    return dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
#else
    (void)code;
    return false;
#endif
}

}  // namespace povmesh
