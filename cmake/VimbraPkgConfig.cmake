# vimbra_install_pc(NAME.pc.in [COMPONENT NAME]): fills the file in and installs it.
include_guard()

function(vimbra_install_pc template)
    cmake_path(GET template FILENAME name)
    string(REGEX REPLACE "\\.in$" "" name ${name})
    # Named from the place of the file itself, so that an installed tree can be moved or staged.
    set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    cmake_path(ABSOLUTE_PATH pkgconfig_dir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
               OUTPUT_VARIABLE pkgconfig_absolute)
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${pkgconfig_absolute}
               OUTPUT_VARIABLE VIMBRA_PC_PREFIX)
    cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}"
               OUTPUT_VARIABLE VIMBRA_PC_LIBDIR)
    cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}"
               OUTPUT_VARIABLE VIMBRA_PC_INCLUDEDIR)
    configure_file(${template} ${name} @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name} DESTINATION ${pkgconfig_dir} ${ARGN})
endfunction()
