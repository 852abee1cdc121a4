# The tool says the same and makes the same files as its build for this machine.
# Takes -D TOOL, EMULATOR (a list), NATIVE, MODELS, WORK (emptied first).
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/here ${WORK}/there)
set(jobs
    "repair featuretype_open.stl -o repaired.stl"
    "convert gearwheel_ascii.stl converted.3mf"
    "convert cat.stl packed.obj.gz"
    "reduce cat.stl -o reduced.stl --keep 0.3"
    "subdivide gearwheel.stl -o finer.stl"
    "remesh gearwheel.stl -o remeshed.stl --edge 4"
    "revise cat.stl -o revised.stl"
    "hollow cat.stl -o hollowed.stl --thickness 2"
    "cut cat.stl -o cut --normal 1,2,3"
    "offset gearwheel.stl -o grown.stl --distance 0.5"
    "wrap multibody_ascii.stl -o wrapped.stl --tolerance 0.05"
    "voxelize gearwheel.stl -o voxels.stl --size 2"
    "support cat.stl -o supported.stl --spacing 4 --angle 45"
    "split multibody_ascii.stl -o parts"
    "orient gearwheel.stl -o turned.stl"
    "balance cat.stl -o balanced.stl --thickness 2"
    "lampshade cat.stl -o lampshade.stl --thickness 2"
    "decompose cat.stl -o divided --size 60,60,60"
    "infill cat.stl -o filled.stl --skin 2 --density 0.5"
    "strength cat.stl -o coloured.obj"
    "thickness cat.stl -o thickness.obj --wall 2"
    "render cat.stl -o picture.png"
    "check featuretype_open.stl --json"
    "check Grüße.stl")
set(differences 0)
foreach(job ${jobs})
    separate_arguments(words UNIX_COMMAND "${job}")
    list(TRANSFORM words PREPEND ${MODELS}/ AT 1)
    foreach(place here there)
        if(place MATCHES "^here$")
            set(command ${NATIVE})
        else()
            set(command ${EMULATOR} ${TOOL})
        endif()
        execute_process(COMMAND ${command} ${words} WORKING_DIRECTORY ${WORK}/${place}
            RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
        # How long something took is no part of it.
        string(REGEX REPLACE "(\n *time +|[0-9]+ in )[0-9.]+ m?s" "\\1" output "${output}")
        # Where a folder is named, the last separator is that of the system.
        string(REPLACE "\\" "/" said_${place} "status ${status}\n${output}${errors}")
    endforeach()
    if(NOT said_here STREQUAL said_there)
        message("${job}: here ${said_here}there ${said_there}")
        math(EXPR differences "${differences} + 1")
    endif()
endforeach()
file(GLOB_RECURSE files RELATIVE ${WORK}/here ${WORK}/here/*)
foreach(file ${files})
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/here/${file} ${WORK}/there/${file}
        RESULT_VARIABLE difference OUTPUT_QUIET ERROR_QUIET)
    if(difference)
        message("${file} is not the same")
        math(EXPR differences "${differences} + 1")
    endif()
endforeach()
list(LENGTH files count)
if(differences OR count LESS 20)
    message(FATAL_ERROR "${differences} differences, ${count} files")
endif()
message(STATUS "${count} files are the same")
