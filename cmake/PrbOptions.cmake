# Compiler settings that every target shares, and the helpers that make targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The products lie directly in the build folder, so that each finds the others beside itself.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

find_program(PRB_CCACHE ccache)
if(PRB_CCACHE)
    # Without the leave it caches nothing that uses a precompiled header.
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${PRB_CCACHE})
endif()

find_package(Threads REQUIRED)

# jni.h is the same text for both word sizes, so the 64-bit JDK's serves the 32-bit build too.
if(NOT PRB_JAVA_HOME)
    if(DEFINED ENV{PRB_JAVA_HOME})
        set(PRB_JAVA_HOME $ENV{PRB_JAVA_HOME})
    else()
        file(GLOB prb_jdks /usr/lib/jvm/java-17-openjdk-amd64)
        list(GET prb_jdks 0 PRB_JAVA_HOME)
    endif()
endif()
set(PRB_JAVA_HOME ${PRB_JAVA_HOME} CACHE PATH "The JDK 17 that builds the Java side")
if(NOT EXISTS ${PRB_JAVA_HOME}/include/jni.h)
    message(FATAL_ERROR "no JDK at '${PRB_JAVA_HOME}': run tools/setup, or set PRB_JAVA_HOME")
endif()

add_library(prb_options INTERFACE)
target_include_directories(prb_options INTERFACE ${CMAKE_SOURCE_DIR})
target_include_directories(prb_options SYSTEM INTERFACE
    ${PRB_JAVA_HOME}/include ${PRB_JAVA_HOME}/include/linux)
target_compile_options(prb_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Wno-format-y2k -Werror)
# GCC 12 sees overlaps inside std::string that are not there (GCC bug 105329).
target_compile_options(prb_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_compile_definitions(prb_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_libraries(prb_options INTERFACE Threads::Threads)

if(PRB_32BIT)
    # HotSpot's own 32-bit build needs SSE2 and nothing beyond it; SSE arithmetic makes doubles
    # come out the same on both word sizes. The VM may call with a stack that is aligned to
    # 4 bytes only. time_t stays 32-bit: records that hold a timeval have fixed sizes.
    add_compile_options(-m32 -march=i686 -msse2 -mfpmath=sse -mstackrealign)
    add_link_options(-m32)
endif()

if(PRB_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(PRB_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(PRB_SANITIZE)
    message(FATAL_ERROR "PRB_SANITIZE is '${PRB_SANITIZE}': give address, thread or nothing")
endif()
if(PRB_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_definitions(prb_options INTERFACE PRB_CHECK_LOCK_ORDER=1)
endif()

# prb_add_part(name [deps...]): a static library of every source in the calling folder.
function(prb_add_part name)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    if(NOT sources)
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE prb_options ${ARGN})
        return()
    endif()
    add_library(${name} STATIC ${sources})
    # What no one uses is left out of the shared libraries.
    target_compile_options(${name} PRIVATE -ffunction-sections -fdata-sections)
    target_link_libraries(${name} PUBLIC prb_options ${ARGN})
endfunction()

# prb_small(sources...): of the calling folder, what runs once or on request: there, small beats
# fast.
function(prb_small)
    if(CMAKE_BUILD_TYPE STREQUAL "Release")
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -Os)
    endif()
endfunction()

# prb_add_shared(name map parts...): a shared library of whole parts that exports what the
# version script names and needs no C++ runtime of the host's.
function(prb_add_shared name map)
    set(objects)
    foreach(part IN LISTS ARGN)
        list(APPEND objects $<TARGET_OBJECTS:${part}>)
    endforeach()
    add_library(${name} SHARED ${objects} ${CMAKE_SOURCE_DIR}/cmake/Terminate.cpp)
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    target_link_libraries(${name} PRIVATE prb_options ${CMAKE_DL_LIBS})
    target_link_options(${name} PRIVATE
        -Wl,--version-script=${map} -Wl,--no-undefined-version -Wl,-z,defs)
    set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})
    if(PRB_SANITIZE)
        # A library that is loaded into an unprepared host leaves the sanitizer's symbols open.
        target_link_options(${name} PRIVATE -Wl,-z,undefs)
    else()
        target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections
            -Wl,-O1 -Wl,-z,noseparate-code
            -Wl,--exclude-libs,libstdc++.a:libgcc.a:libgcc_eh.a)
    endif()
endfunction()
