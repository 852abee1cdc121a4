# The ZIP has what hosts need: programs outside are built against what it holds, and run beside its DLL.
# Takes -D CPACK, CONFIG, WORK (emptied first), SOURCE, TOOLCHAIN, GENERATOR, EMULATOR (a list), COMPILER, DLLTOOL.
file(REMOVE_RECURSE ${WORK})

function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CPACK} --config ${CONFIG} -B ${WORK})
file(GLOB archive ${WORK}/povmesh-*-windows-x86_64.zip)
file(ARCHIVE_EXTRACT INPUT ${archive} DESTINATION ${WORK}/unpacked)
file(GLOB top ${WORK}/unpacked/*)
foreach(file bin/Povmesh_64.dll bin/povmesh.exe lib/libPovmesh_64.dll.a lib/Povmesh_64.def
    include/povmesh/povmesh.h include/povmesh/context.h include/povmesh/povmesh.hpp
    LICENSE README.md docs/windows.md docs/context.md licenses/libpng.txt licenses/expat.txt)
    if(NOT EXISTS ${top}/${file})
        message(FATAL_ERROR "${archive} has no ${file}")
    endif()
endforeach()
run(${EMULATOR} ${top}/bin/povmesh.exe version)

run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE} -B ${WORK}/consumer -DCMAKE_BUILD_TYPE=Release
    -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DPovmesh_DIR=${top}/lib/cmake/Povmesh)
run(${CMAKE_COMMAND} --build ${WORK}/consumer)
# Other compilers make an import library of the list of names.
run(${DLLTOOL} -d ${top}/lib/Povmesh_64.def -l ${WORK}/consumer/Povmesh_64.lib)
run(${COMPILER} -I${top}/include ${SOURCE}/job.c ${WORK}/consumer/Povmesh_64.lib
    -o ${WORK}/consumer/consumer_of_definition.exe)
file(COPY ${top}/bin/Povmesh_64.dll DESTINATION ${WORK}/consumer)
foreach(program main_c job_c jobs_cpp of_definition)
    run(${EMULATOR} ${WORK}/consumer/consumer_${program}.exe)
endforeach()
