# Installation: the libraries with their variants, headers, the CMake package koImage, and koImage.pc. The prefix may
# be moved afterwards.
#
# Components: runtime (libraries that programs load), development (headers, links, packages).

include(CMakePackageConfigHelpers)
set(KO_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/koImage)

set(libraries koBase koImage)
if(KO_BUILD_IO)
    list(APPEND libraries koImageIO)
endif()
foreach(library IN LISTS libraries)
    set_target_properties(${library} PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${library} EXPORT ${library}Targets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        FILE_SET HEADERS COMPONENT development
        FILE_SET generated COMPONENT development)
    install(EXPORT ${library}Targets NAMESPACE ${library}:: DESTINATION ${KO_PACKAGE_DIR} COMPONENT development)
endforeach()

foreach(variant IN LISTS KO_VARIANTS)
    set_target_properties(koImage_${variant} PROPERTIES INSTALL_RPATH "$ORIGIN/../..")
    install(TARGETS koImage_${variant}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/${variant} COMPONENT runtime NAMELINK_SKIP)
endforeach()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/koImageConfig.cmake.in koImageConfig.cmake
    INSTALL_DESTINATION ${KO_PACKAGE_DIR})
write_basic_package_version_file(koImageConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/koImageConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/koImageConfigVersion.cmake
    DESTINATION ${KO_PACKAGE_DIR} COMPONENT development)

file(RELATIVE_PATH KO_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/koImage.pc.in koImage.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/koImage.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# An outside project finds, builds against and runs what was installed, after the prefix has moved.
if(KO_BUILD_TESTS)
    string(REGEX REPLACE "^(.+)$" "-fsanitize=\\1" sanitizers "${KO_SANITIZERS}")
    add_test(NAME package.InstalledPrefixCanBeMovedAndUsedFromOutside
        COMMAND ${CMAKE_COMMAND}
            -D build=${PROJECT_BINARY_DIR} -D source=${PROJECT_SOURCE_DIR} -D compiler=${CMAKE_CXX_COMPILER}
            -D flags=${sanitizers}
            -D with_io=${KO_BUILD_IO}
            -D libdir=${CMAKE_INSTALL_LIBDIR}
            -P ${CMAKE_CURRENT_LIST_DIR}/package_test.cmake)
    set_tests_properties(package.InstalledPrefixCanBeMovedAndUsedFromOutside PROPERTIES LABELS package)
endif()
