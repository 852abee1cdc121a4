# Tests of what other systems have and Windows or its emulation does not, each with its reason.
# The runtime gives the address of an array out again as soon as it is free, and that test knows arrays by address.
set(povmesh_filter "-Frames.FreeFunctionsFreeTheirSlotsInOrderAndOnce")
