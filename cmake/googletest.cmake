# GTest::gtest, GTest::gtest_main, GTest::gmock, GTest::gmock_main. Debian's libraries of GoogleTest are this
# machine's; for other targets it is built from Debian's package of its sources.
include(GoogleTest)

# Tests are listed when they are about to run, in the environment that they run in.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)

if(CMAKE_CROSSCOMPILING)
  set(googletest /usr/src/googletest)
  if(NOT EXISTS ${googletest}/CMakeLists.txt)
    message(FATAL_ERROR "GoogleTest's sources are not in ${googletest}: scripts/install-packages.sh cross")
  endif()
  set(INSTALL_GTEST OFF)
  add_subdirectory(${googletest} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  # It is not what is checked.
  foreach(library gtest gtest_main gmock gmock_main)
    target_compile_options(${library} PRIVATE -fno-sanitize=all)
  endforeach()
else()
  find_package(GTest REQUIRED)
endif()

# olv_discover_tests(TARGET [OPTION...]): each test of a program as one of CTest's; the options are those of
# gtest_discover_tests(). An emulator, and a sanitizer, take longer to start a program than to run most of its tests:
# there the program runs them in four parts.
function(olv_discover_tests target)
  target_precompile_headers(${target} REUSE_FROM olv_test_headers)
  if(NOT CMAKE_CROSSCOMPILING AND NOT OLV_TWAMP_SANITIZE)
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 ${ARGN})
    return()
  endif()
  cmake_parse_arguments(test "" "" PROPERTIES ${ARGN})
  foreach(index RANGE 3)
    math(EXPR part "${index} + 1")
    add_test(NAME ${target}.part_${part}_of_4 COMMAND ${target} --gtest_brief=1)
    set_tests_properties(${target}.part_${part}_of_4 PROPERTIES
      ENVIRONMENT "GTEST_TOTAL_SHARDS=4;GTEST_SHARD_INDEX=${index}" ${test_PROPERTIES})
  endforeach()
endfunction()
