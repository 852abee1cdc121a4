// The memory that the C library keeps.
#pragma once

namespace povmesh {

/// Hands freed memory back to the system, as far as the C library keeps any and can tell: large
/// arrays that come and go leave gaps, which can take twice as much as what is in use. For between
/// stages that fill large arrays: it takes milliseconds, and so does memory that is taken anew.
void give_back_freed_memory() noexcept;

}  // namespace povmesh
