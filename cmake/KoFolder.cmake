# ko_add_folder(<library> <label> <concept>...)
#
# One folder of a library. Files of one concept share a stem:
#
#   <concept>.h           public header, installed; none where the concept stands behind the header of another
#   <concept>.cpp         source, where the concept is more than its header
#   <concept>_test.cpp    tests, in the binary <label>_test, labelled <label> in CTest; must be there
#   <concept>_bench.cpp   micro-benchmarks, in the binary <label>_bench
function(ko_add_folder library label)
    set(folder ${CMAKE_CURRENT_SOURCE_DIR})
    get_target_property(targets ${library} KO_TARGETS)

    foreach(concept IN LISTS ARGN)
        if(EXISTS ${folder}/${concept}.h)
            target_sources(${library} PUBLIC FILE_SET HEADERS FILES ${folder}/${concept}.h)
        endif()
        if(EXISTS ${folder}/${concept}.cpp)
            foreach(target IN LISTS targets)
                target_sources(${target} PRIVATE ${folder}/${concept}.cpp)
            endforeach()
        endif()
        list(APPEND tests ${folder}/${concept}_test.cpp)
        if(EXISTS ${folder}/${concept}_bench.cpp)
            list(APPEND benches ${folder}/${concept}_bench.cpp)
        endif()
    endforeach()

    if(KO_BUILD_TESTS)
        include(GoogleTest)
        add_executable(${label}_test ${tests})
        target_link_libraries(${label}_test PRIVATE koimage_build ${library} GTest::gmock_main)
        gtest_discover_tests(${label}_test DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${label})
    endif()
    if(KO_BUILD_BENCHMARKS AND benches)
        # Benchmarks count what they allocate, without the arrays that koImage keeps.
        add_executable(${label}_bench ${benches} ${PROJECT_SOURCE_DIR}/koImage/testing/allocations.cpp)
        target_link_libraries(${label}_bench PRIVATE koimage_build ${library} koImage benchmark::benchmark_main)
    endif()
endfunction()
