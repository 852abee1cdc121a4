# What programs and libraries for Windows have beside their code.
enable_language(RC)

# What the system shows as their properties. TYPE is APP or DLL; a manifest may follow.
function(povmesh_version_resource target file type)
    set(manifest_line "")
    if(ARGC GREATER 3)
        set(manifest_line "CREATEPROCESS_MANIFEST_RESOURCE_ID RT_MANIFEST \"${ARGV3}\"")
    endif()
    set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
    target_sources(${target} PRIVATE ${resource})
    if(ARGC GREATER 3)
        set_source_files_properties(${resource} PROPERTIES OBJECT_DEPENDS ${ARGV3})
    endif()
endfunction()

# A ZIP of what is installed: library, import library and list of names, headers, tool, terms.
function(povmesh_package)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/README.md DESTINATION .)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/windows.md ${PROJECT_SOURCE_DIR}/docs/context.md
        DESTINATION docs)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/windows-libraries/share/licenses DESTINATION .)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_NAME povmesh)
    set(CPACK_PACKAGE_FILE_NAME povmesh-${PROJECT_VERSION}-windows-x86_64)
    set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)
    set(CPACK_STRIP_FILES ON)
    include(CPack)
endfunction()

# Writes the names of a linker version script as a module definition file.
function(povmesh_module_definition map definition library)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${map})
    file(STRINGS ${map} lines REGEX "^ +[A-Za-z_0-9]+;")
    set(text "LIBRARY ${library}\nEXPORTS\n")
    foreach(line ${lines})
        string(REGEX MATCH "[A-Za-z_0-9]+" name "${line}")
        string(APPEND text "    ${name}\n")
    endforeach()
    file(CONFIGURE OUTPUT ${definition} CONTENT "${text}" @ONLY)
endfunction()
