# How we compile: one interface target for all of our own code, and the libraries made with it.

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

add_library(koimage_build INTERFACE)  # never exported
target_compile_features(koimage_build INTERFACE cxx_std_20)
target_compile_options(koimage_build INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion
    $<$<BOOL:${KO_WARNINGS_AS_ERRORS}>:-Werror>
    -ffp-contract=off)  # results are defined to the bit: no fused multiply-add
if(KO_SANITIZERS)
    target_compile_options(koimage_build INTERFACE -fsanitize=${KO_SANITIZERS} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    target_link_options(koimage_build INTERFACE -fsanitize=${KO_SANITIZERS})
endif()

# Instruction-set variants of a library beside the baseline one. The dynamic loader picks the best that the
# processor runs out of <library folder>/glibc-hwcaps/<variant>/.
set(KO_VARIANTS "")
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$" AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    set(KO_VARIANTS x86-64-v3)
endif()

# ko_add_library(<name> [VARIANTS <variant>...])
#
# A shared library with hidden visibility, a generated export header <name>/export.h, and <name>.h, the header that
# includes all others. Each variant is the target <name>_<variant>: the same sources, compiled for that instruction set.
function(ko_add_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "VARIANTS")
    add_library(${name} SHARED)
    add_library(${name}::${name} ALIAS ${name})
    set_target_properties(${name} PROPERTIES KO_TARGETS ${name})

    include(GenerateExportHeader)
    generate_export_header(${name} EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/generated/${name}/export.h)
    target_sources(${name} PUBLIC FILE_SET generated TYPE HEADERS
        BASE_DIRS ${PROJECT_BINARY_DIR}/generated FILES ${PROJECT_BINARY_DIR}/generated/${name}/export.h)
    target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}
        FILES ${CMAKE_CURRENT_SOURCE_DIR}/${name}.h)

    foreach(variant IN LISTS arg_VARIANTS)
        set(target ${name}_${variant})
        add_library(${target} SHARED)
        target_compile_options(${target} PRIVATE -march=${variant})
        target_compile_definitions(${target} PRIVATE ${name}_EXPORTS)
        set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name}
            LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/glibc-hwcaps/${variant})
        set_property(TARGET ${name} APPEND PROPERTY KO_TARGETS ${target})
        # Whoever builds the library has every variant of it: the loader takes the best one it finds.
        add_dependencies(${name} ${target})
    endforeach()

    get_target_property(targets ${name} KO_TARGETS)
    foreach(target IN LISTS targets)
        target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:koimage_build>)
        target_compile_features(${target} PUBLIC cxx_std_20)
        target_include_directories(${target} PUBLIC
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>)
        set_target_properties(${target} PROPERTIES
            CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
            VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    endforeach()
endfunction()

# ko_link_library(<name> <library>...): links a library, all variants of it, with libraries that its headers use.
function(ko_link_library name)
    get_target_property(targets ${name} KO_TARGETS)
    foreach(target IN LISTS targets)
        target_link_libraries(${target} PUBLIC ${ARGN})
    endforeach()
endfunction()
