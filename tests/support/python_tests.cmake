find_program(OLV_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)

# olv_add_python_tests(PREFIX FILE ENVIRONMENT PROPERTY VALUE...): each test method of a file as a test of CTest's with
# this environment and these properties; Class.test_this as PREFIX.Class.this.
function(olv_add_python_tests prefix file environment)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(STRINGS ${file} lines REGEX "^(class |    def test_)")
  foreach(line IN LISTS lines)
    if(line MATCHES "^class ([A-Za-z]+)")
      set(class ${CMAKE_MATCH_1})
    elseif(line MATCHES "def test_([a-z0-9_]+)")
      set(name ${prefix}.${class}.${CMAKE_MATCH_1})
      add_test(NAME ${name} COMMAND ${OLV_PYTHON} -B ${CMAKE_CURRENT_SOURCE_DIR}/${file} ${class}.test_${CMAKE_MATCH_1})
      set_tests_properties(${name} PROPERTIES ENVIRONMENT "${environment}" ${ARGN})
    endif()
  endforeach()
endfunction()
