# What `cmake --install` puts where: headers, both libraries, a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

if(NOT TARGET tarsil32_shared)
    return()
endif()

# Components, which are the Debian packages too: library, development, tools.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS tarsil32_shared tarsil32_static EXPORT tarsil32Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

# The pkg-config file finds its prefix from where it lies, so that an installed tree can be moved; one in /usr won't be.
set(pc_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH way_up /${pc_folder} /)
    string(REGEX REPLACE "/$" "" way_up "${way_up}")
    set(pc_prefix "\${pcfiledir}/${way_up}")
endif()
foreach(folder INCLUDE LIB)
    set(pc_${folder} "${CMAKE_INSTALL_${folder}DIR}")
    if(NOT IS_ABSOLUTE "${pc_${folder}}")
        set(pc_${folder} "\${prefix}/${pc_${folder}}")
    endif()
endforeach()
configure_file(cmake/tarsil32.pc.in tarsil32.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarsil32.pc DESTINATION ${pc_folder})

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tarsil32)
configure_package_config_file(cmake/tarsil32Config.cmake.in tarsil32Config.cmake
    INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(tarsil32ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarsil32Config.cmake ${PROJECT_BINARY_DIR}/tarsil32ConfigVersion.cmake
    DESTINATION ${package_folder})
install(EXPORT tarsil32Targets NAMESPACE tarsil32:: DESTINATION ${package_folder})

install(FILES README.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
# The demo needs more than what is installed.
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "demo.cpp" EXCLUDE)

# Manual pages: those of section 3 are made from the public header, those of other sections stand in docs/man/.
set(man3 ${PROJECT_BINARY_DIR}/man3)
set(make_man ${PROJECT_SOURCE_DIR}/scripts/make-man)
add_custom_command(OUTPUT ${man3}/tarsil32.3 VERBATIM
    COMMAND ${make_man} ${PROJECT_SOURCE_DIR}/include ${man3}
    DEPENDS include/tarsil32.h include/tarsil32_codes.h ${make_man} ${make_man}.awk)
add_custom_target(tarsil32_man ALL DEPENDS ${man3}/tarsil32.3)
install(DIRECTORY ${man3}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
file(GLOB man_pages CONFIGURE_DEPENDS docs/man/*.[1-7])
foreach(page ${man_pages})
    string(REGEX MATCH "[1-7]$" section ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
