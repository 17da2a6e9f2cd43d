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
else()
  find_package(GTest REQUIRED)
endif()
