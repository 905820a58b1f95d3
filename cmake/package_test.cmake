# Installs the build, moves the prefix, and builds and runs the examples there as an outside project: once through
# find_package, once through pkg-config where that is installed.
set(work ${build}/package_test)
file(REMOVE_RECURSE ${work})

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CMAKE_COMMAND} --install ${build} --prefix ${work}/first)
file(RENAME ${work}/first ${work}/prefix)

run(${CMAKE_COMMAND} -S ${source}/examples -B ${work}/build -G Ninja -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_CXX_FLAGS=${flags} -D CMAKE_PREFIX_PATH=${work}/prefix)
run(${CMAKE_COMMAND} --build ${work}/build)
run(${work}/build/first_image ${work}/first_image.ppm)
if(with_io)
    run(${work}/build/half_size ${source}/examples/sunset.png ${work}/half_size.exr)
endif()

find_program(pkgconfig pkg-config)
if(pkgconfig)
    set(ENV{PKG_CONFIG_PATH} ${work}/prefix/${libdir}/pkgconfig)
    execute_process(COMMAND ${pkgconfig} --cflags --libs koImage
        OUTPUT_VARIABLE arguments OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(arguments UNIX_COMMAND "${arguments} ${flags}")
    run(${compiler} -std=c++20 ${source}/examples/first_image.cpp -o ${work}/by_pkgconfig
        ${arguments} -Wl,-rpath,${work}/prefix/${libdir})
    run(${work}/by_pkgconfig ${work}/by_pkgconfig.ppm)
endif()
