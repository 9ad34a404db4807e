# Compiler flags: what every target of the project gets (tarsil32_own) and what the library's objects get on top.
include(CheckCXXCompilerFlag)

set(warnings -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-align -Wcast-qual
    -Wnull-dereference -Wmissing-declarations $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
if(TARSIL32_WERROR)
    list(APPEND warnings -Werror)
endif()

# Instruments: compile and link with the same flags. The plain copy of the library (tests/) goes without.
set(instruments "")
if(TARSIL32_SANITIZE)
    list(APPEND instruments -fsanitize=address,undefined,float-cast-overflow
        -fno-sanitize-recover=all -fno-omit-frame-pointer)
    # Clang's check of calls through pointers wants type information, which the library has not.
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        list(APPEND instruments -fno-sanitize=function)
    endif()
endif()
if(TARSIL32_COVERAGE)
    list(APPEND instruments --coverage)
endif()
if(TARSIL32_FUZZ)
    list(APPEND instruments -fsanitize=fuzzer-no-link)
endif()

# The library is C++ without a C++ runtime, and its arithmetic on floats and doubles is exactly the one written
# down: no contraction to fused operations, no precision beyond the type's.
set(library_flags -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-semantic-interposition
    -fvisibility=hidden -ffp-contract=off)
check_cxx_compiler_flag(-fexcess-precision=standard TARSIL32_HAS_EXCESS_PRECISION)
if(TARSIL32_HAS_EXCESS_PRECISION)
    list(APPEND library_flags -fexcess-precision=standard)
endif()
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i[3-6]86|x86|x86_64|AMD64)$")
    list(APPEND library_flags -msse2 -mfpmath=sse)
endif()

# The preset that measures the tests wants a library whose jumps are those of its source.
set(TARSIL32_LIBRARY_FLAGS "" CACHE STRING "Further flags of the library's objects")
list(APPEND library_flags ${TARSIL32_LIBRARY_FLAGS})

# Objects that carry both machine code and what the optimiser needs at link time: the shared library is optimised
# as a whole, while the static one keeps the machine code alone (cmake/Library.cmake).
set(lto_compile_flags "")
set(lto_link_flags "")
if(TARSIL32_LTO AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set(lto_compile_flags -flto=auto -ffat-lto-objects)
    set(lto_link_flags -flto=auto ${library_flags})
endif()

# Warnings, instruments and include paths: sources say "core/tables.h" and "tarsil32.h".
function(tarsil32_own target)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
    target_compile_options(${target} PRIVATE ${warnings} ${instruments})
    target_link_options(${target} PRIVATE ${instruments})
endfunction()
