// Compiles only while programs that were built against an earlier header go on with this library.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "povmesh/context.h"

#define STRUCT(type, bytes) static_assert(sizeof(type) == (bytes));
#define FIELD(type, field, place, bytes) \
    static_assert(offsetof(type, field) == (place) && sizeof(type::field) == (bytes));
#define VALUE(enumerator, value) static_assert((enumerator) == (value));
#define FUNCTION(name, result, parameters) \
    static_assert(std::is_same_v<decltype(&(name)), result(*) parameters>);

#if UINTPTR_MAX == UINT64_MAX
#include "abi.inc"
#endif
