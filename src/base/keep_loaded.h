// Code that must outlive the wish of a host to unload it.
#pragma once

namespace povmesh {

/// Keeps the library or program that this code stands in loaded until the process ends. False where
/// the system has no such thing.
bool keep_loaded(const void* code);

}  // namespace povmesh
