# tarsil32_add_library(suffix [PLAIN]) makes, each with the suffix in its name:
#   tarsil32_logic    objects of all folders above the platform; tests link them with a simulated platform too
#   tarsil32_posix    objects of platform/
#   tarsil32_shared   libTARSIL32.so.2.10, linked by the C compiler, so that the C library is all it needs
#   tarsil32_static   libTARSIL32.a
# With PLAIN the instruments (sanitizers, coverage) stay out and only the shared library is made.

set(logic_folders core files multiuser data index text)

function(tarsil32_objects target)
    add_library(${target} OBJECT ${ARGN})
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
    target_compile_definitions(${target} PRIVATE TARSIL32_BUILDING _FILE_OFFSET_BITS=64)
    target_compile_options(${target} PRIVATE ${warnings} ${library_flags} ${lto_compile_flags})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()

function(tarsil32_shared_library target)
    add_library(${target} SHARED ${ARGN})
    set(map ${PROJECT_SOURCE_DIR}/core/exports.map)
    target_link_options(${target} PRIVATE ${lto_link_flags} -Wl,--version-script=${map}
        -Wl,-Bsymbolic-functions -Wl,--as-needed -Wl,-z,relro -Wl,-z,now)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME TARSIL32 VERSION 2.10 SOVERSION 2 LINKER_LANGUAGE C LINK_DEPENDS ${map})
endfunction()

function(tarsil32_add_library suffix)
    cmake_parse_arguments(PARSE_ARGV 1 arg "PLAIN" "" "")
    list(TRANSFORM logic_folders REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/\\1/*.cpp" OUTPUT_VARIABLE patterns)
    file(GLOB logic_sources CONFIGURE_DEPENDS ${patterns})
    file(GLOB posix_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/*.cpp)
    if(NOT logic_sources OR NOT posix_sources)
        message(WARNING "core/ ... text/ or platform/ hold no sources: no library${suffix}")
        return()
    endif()

    tarsil32_objects(tarsil32_logic${suffix} ${logic_sources})
    tarsil32_objects(tarsil32_posix${suffix} ${posix_sources})
    if(TARSIL32_MAPPING)
        target_compile_definitions(tarsil32_posix${suffix} PRIVATE TARSIL32_MAPPING)
    endif()
    set(objects $<TARGET_OBJECTS:tarsil32_logic${suffix}> $<TARGET_OBJECTS:tarsil32_posix${suffix}>)
    tarsil32_shared_library(tarsil32_shared${suffix} ${objects})
    if(arg_PLAIN)
        target_link_options(tarsil32_shared${suffix} PRIVATE -Wl,--no-undefined)
        set_target_properties(tarsil32_shared${suffix} PROPERTIES
            LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/plain)
        return()
    endif()

    foreach(target logic posix)
        target_compile_options(tarsil32_${target} PRIVATE ${instruments})
    endforeach()
    target_link_options(tarsil32_shared PRIVATE ${instruments})
    if(NOT instruments)
        target_link_options(tarsil32_shared PRIVATE -Wl,--no-undefined)
    endif()

    add_library(tarsil32_static STATIC ${objects})
    set_target_properties(tarsil32_static PROPERTIES OUTPUT_NAME TARSIL32)
    if(lto_compile_flags)
        add_custom_command(TARGET tarsil32_static POST_BUILD VERBATIM
            COMMAND ${CMAKE_OBJCOPY} --wildcard -R .gnu.lto_* -R .gnu.debuglto_* -N __gnu_lto_v1
                $<TARGET_FILE:tarsil32_static>)
    endif()

    foreach(kind shared static)
        target_include_directories(tarsil32_${kind} INTERFACE
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
        set_target_properties(tarsil32_${kind} PROPERTIES EXPORT_NAME ${kind})
        add_library(tarsil32::${kind} ALIAS tarsil32_${kind})
    endforeach()
endfunction()
