# Programs that were linked against an earlier library go on with this one: its functions and their types, as
# the compiler left them in the library, are those of Povmesh_64.abi. (Sizes, places and enumerators are
# asserted by tests/context/abi.inc.) Structs of options and of reports may grow at their end, but every change
# is told: the suppression that abidiff 2.2 has for growth lets changed fields pass, too. Takes -D ABIDW, ABIDIFF,
# READELF, LIBRARY, HEADERS, REFERENCE (the folder of the .abi), WORK; and -D RENEW=ON after functions or fields
# were added, to write the reference anew:
#     cmake -D RENEW=ON -D ABIDW=abidw -D LIBRARY=build/asan/lib/libPovmesh_64.so -D HEADERS=include/povmesh
#         -D REFERENCE=tests/abi -P tests/api/abi_test.cmake
set(reference ${REFERENCE}/Povmesh_64.abi)
set(describe ${ABIDW} --headers-dir ${HEADERS} --drop-private-types --exported-interfaces-only
    --no-architecture --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed
    --no-parameter-names --type-id-style hash)
if(RENEW)
    execute_process(COMMAND ${describe} --out-file ${reference} ${LIBRARY} COMMAND_ERROR_IS_FATAL ANY)
    return()
endif()
if(NOT ABIDW OR NOT ABIDIFF)
    message("skipped: abidw and abidiff are missing (package abigail-tools)")
    return()
endif()
execute_process(COMMAND ${READELF} -S ${LIBRARY} OUTPUT_VARIABLE sections COMMAND_ERROR_IS_FATAL ANY)
if(NOT sections MATCHES "debug_info")
    message("skipped: the library was built without -g, and tells no types")
    return()
endif()
execute_process(COMMAND ${describe} --out-file ${WORK}/built.abi ${LIBRARY} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${ABIDIFF} --no-added-syms
    ${reference} ${WORK}/built.abi RESULT_VARIABLE status OUTPUT_VARIABLE changes)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "programs that are out there would break, unless all that changed is a struct of options "
        "or of a report that has grown at its end; then write ${reference} anew:\n${changes}")
endif()
