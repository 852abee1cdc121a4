# The host in C that docs/windows.md shows compiles, finds the DLL beside it and ends well.
# Takes -D PAGE, INCLUDE, LIBRARY, COMPILER, EMULATOR (a list), WORK (emptied first).
file(REMOVE_RECURSE ${WORK})
file(READ ${PAGE} text)
string(REGEX MATCH "```c\n([^`]+)```" found "${text}")
file(WRITE ${WORK}/host.c "${CMAKE_MATCH_1}")
file(COPY ${LIBRARY} DESTINATION ${WORK})
execute_process(COMMAND ${COMPILER} -std=c99 -Wall -Wextra -Wno-cast-function-type -Werror -I${INCLUDE}
    ${WORK}/host.c -o ${WORK}/host.exe COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${EMULATOR} ${WORK}/host.exe COMMAND_ERROR_IS_FATAL ANY)
