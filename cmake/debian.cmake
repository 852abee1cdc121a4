# A .deb of library, tool, headers and Python package, by `cpack` in a build folder: scripts/deb.
function(povmesh_debian_package)
    # Where Debian's Python looks, whatever its version: the package is called by ctypes.
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/povmesh DESTINATION lib/python3/dist-packages
        FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGE_NAME povmesh)
    set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
    set(CPACK_PACKAGE_CONTACT "Povmesh")
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON) # the libraries that it was linked with
    set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "python3, python3-numpy")
    set(CPACK_DEBIAN_PACKAGE_GENERATE_TRIGGERS ON) # ldconfig
    include(CPack)
endfunction()
