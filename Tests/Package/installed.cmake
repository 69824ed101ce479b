# Installs the build, moves what was installed elsewhere, and builds the example against it: with
# CMake and each of the two libraries, and with pkg-config. Run by ctest as
#   cmake -DBUILD=... -DSOURCE=... -DWORK=... -DCOMPILER=... -DGENERATOR=... -P installed.cmake
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/first)
if(CMAKE_HOST_APPLE)
  # The compiler itself, unlike its namesake in /usr/bin, does not look for the system's headers.
  run(xcrun --show-sdk-path)
  set(ENV{SDKROOT} ${output})
else()
  file(READ ${WORK}/first/lib/systemd/user/wakelatch.service unit)
  if(NOT unit MATCHES "ExecStart=${WORK}/first/bin/wakelatch watch")
    message(FATAL_ERROR "The unit starts another program: ${unit}")
  endif()
endif()
file(RENAME ${WORK}/first ${WORK}/moved)
set(prefix ${WORK}/moved)

foreach(shared IN ITEMS OFF ON)
  set(build ${WORK}/shared-${shared})
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE}/Examples -B ${build}
      -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_PREFIX_PATH=${prefix} -DBUILD_SHARED_LIBS=${shared})
  run(${CMAKE_COMMAND} --build ${build})
  run(${CMAKE_CTEST_COMMAND} --test-dir ${build} --output-on-failure --no-tests=error)
endforeach()

file(GLOB_RECURSE pc ${prefix}/wakelatchcore.pc)
get_filename_component(pc_directory ${pc} DIRECTORY)
get_filename_component(libraries ${pc_directory} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_directory})
set(ENV{HOME} ${WORK})
set(shared so)
if(CMAKE_HOST_APPLE)
  set(shared dylib)
endif()
foreach(suffix IN ITEMS ${shared} a)
  run(pkg-config --static --cflags --libs wakelatchcore)
  string(REPLACE -lWakelatchCore ${libraries}/libWakelatchCore.${suffix} output "${output}")
  separate_arguments(flags UNIX_COMMAND "${output}")
  run(${COMPILER} -std=c++20 ${SOURCE}/Examples/embed.cpp ${flags} -Wl,-rpath,${libraries}
      -o ${WORK}/embed)
  run(${WORK}/embed)
endforeach()
run(${prefix}/bin/wakelatch --help)
