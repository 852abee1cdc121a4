# The shared library shows exactly the listed functions.
# Takes -D NM, LIBRARY, LIST.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+\n" symbols "${table}")
list(TRANSFORM symbols STRIP)
list(SORT symbols)
file(STRINGS ${LIST} expected)
list(SORT expected)
if(NOT symbols STREQUAL expected)
    string(REPLACE ";" "\n" symbols "${symbols}")
    message(FATAL_ERROR "Exported symbols differ from ${LIST}; they are:\n${symbols}")
endif()
