# Builds and runs a project that has this one as a subdirectory. Arguments as for installed.cmake.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${CMAKE_CURRENT_LIST_DIR}/Subproject -B ${WORK}
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_UNITY_BUILD=ON -DWAKELATCH_SOURCE_DIR=${SOURCE})
run(${CMAKE_COMMAND} --build ${WORK})
set(ENV{HOME} ${WORK})
run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK} --output-on-failure --no-tests=error)
