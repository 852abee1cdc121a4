# The shared library shows exactly the functions of the linker map.
# Takes -D NM, LIBRARY, MAP.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+\n" symbols "${table}")
list(TRANSFORM symbols STRIP)
list(SORT symbols)
file(STRINGS ${MAP} expected REGEX "^    [A-Za-z0-9_]+;$")
list(TRANSFORM expected REPLACE "[ ;]" "")
list(SORT expected)
if(NOT symbols STREQUAL expected)
    string(REPLACE ";" "\n" symbols "${symbols}")
    message(FATAL_ERROR "Exported symbols differ from ${MAP}; they are:\n${symbols}")
endif()
