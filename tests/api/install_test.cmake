# Installs the build into a folder of its own and builds and runs programs outside against it: once
# through the CMake package, once through pkg-config.
# Takes -D BUILD, WORK (emptied first), SOURCE, LIBDIR, BINDIR, PKG_CONFIG (empty: that part is left out),
# TOOL (ON when the tool is part of the build), GENERATOR (of the build: another may have no program here).
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)

function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(try_consumer how)
    run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE} -B ${WORK}/${how} -DCMAKE_BUILD_TYPE=Release
        ${ARGN})
    run(${CMAKE_COMMAND} --build ${WORK}/${how})
    foreach(program main_c job_c jobs_cpp)
        run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK}/${how}/consumer_${program})
    endforeach()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
foreach(library libPovmesh_64.so libPovmesh_64.so.0)
    if(NOT IS_SYMLINK ${prefix}/${LIBDIR}/${library})
        message(FATAL_ERROR "${library} is not the link of a versioned library")
    endif()
endforeach()
if(TOOL)
    run(${prefix}/${BINDIR}/povmesh version)
endif()

# A moved tree still works.
file(RENAME ${prefix} ${WORK}/moved)
set(prefix ${WORK}/moved)
try_consumer(package -DCMAKE_PREFIX_PATH=${prefix})
if(PKG_CONFIG)
    set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
    try_consumer(pkg_config -DCONSUMER_USES_PKG_CONFIG=ON)
endif()
