# Languages, warnings, sanitizers and coverage of the project's own code.

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# The same source gives the same bytes in every directory: no run path of the build tree, and in what is
# shipped no file name of it. Debuggers need the names, so other build types keep them.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
add_compile_options("$<$<CONFIG:Release,MinSizeRel>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=build;-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")

# Linked by every target of ours, never by GoogleTest.
add_library(olv_warnings INTERFACE)
target_compile_options(olv_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Where several files are compiled as one: what one of them hides of another, keeps in an unnamed namespace, or seems
  # to read too early, says nothing; builds that compile each by itself warn of what does.
  set(of_one_file -Wno-shadow -Wshadow=local -Wno-subobject-linkage -Wno-maybe-uninitialized)
  target_compile_options(olv_warnings INTERFACE
    "$<$<AND:$<COMPILE_LANGUAGE:CXX>,$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:${of_one_file}>")
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlaps in std::string that cannot happen (GCC bug 105651).
  target_compile_options(olv_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()

set(OLV_TWAMP_SANITIZE OFF CACHE STRING "Sanitizers: OFF, address+undefined (and leaks where they can be found), undefined-trap or thread")
set_property(CACHE OLV_TWAMP_SANITIZE PROPERTY STRINGS OFF address+undefined undefined-trap thread)
if(OLV_TWAMP_SANITIZE STREQUAL "address+undefined")
  set(sanitize -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(OLV_TWAMP_SANITIZE STREQUAL "undefined-trap")
  # Ends the program with a trap instead of a message: for targets without the sanitizers' run-time library.
  set(sanitize -fsanitize=undefined -fsanitize-undefined-trap-on-error)
elseif(OLV_TWAMP_SANITIZE STREQUAL "thread")
  set(sanitize -fsanitize=thread)
elseif(OLV_TWAMP_SANITIZE)
  message(FATAL_ERROR "OLV_TWAMP_SANITIZE: there is no '${OLV_TWAMP_SANITIZE}'")
endif()

if(OLV_TWAMP_SANITIZE)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
    # The address of a Thumb function is odd, which UndefinedBehaviorSanitizer takes for misaligned.
    list(APPEND sanitize -marm)
  endif()
  add_compile_options(${sanitize})
  add_link_options(${sanitize})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code makes GCC see uninitialised values inside the standard library's headers.
    target_compile_options(olv_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-maybe-uninitialized>)
  endif()
endif()

option(OLV_TWAMP_COVERAGE "Count what is executed, for scripts/coverage.sh" OFF)
if(OLV_TWAMP_COVERAGE)
  if(OLV_TWAMP_SANITIZE)
    message(FATAL_ERROR "OLV_TWAMP_COVERAGE and OLV_TWAMP_SANITIZE exclude each other")
  endif()
  # Atomic, since the threads of the fast path run the same code.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

option(OLV_TWAMP_FUZZ "Build the fuzzers as well; needs Clang or AFL++" OFF)
if(OLV_TWAMP_FUZZ)
  # Everything is instrumented; the fuzzers alone bring a main().
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
