# Tests of what other systems have and Windows or its emulation does not, each with its reason.
set(povmesh_filter "*")
