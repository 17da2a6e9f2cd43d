# Fails unless LIBRARY depends on the C library alone and defines exactly the exported operations.

set(expected_exports
    olv_twamp_custom_bind
    olv_twamp_custom_unbind
    olv_twamp_dump_tables
    olv_twamp_get_imc
    olv_twamp_global_stats_get
    olv_twamp_global_stats_print
    olv_twamp_init
    olv_twamp_map_sys_log
    olv_twamp_responder_create
    olv_twamp_responder_delete
    olv_twamp_responder_stats_get
    olv_twamp_responder_stats_print
    olv_twamp_service_function_update
    olv_twamp_shutdown
    olv_twamp_sys_log
    olv_twamp_table_entry_dump
    olv_twamp_table_entry_dump_fn
    olv_twamp_tables_dump
    olv_twamp_valid_module_handle
    responder_entry_dump)

function(run_tool output)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "'${ARGN}' failed: ${result}")
  endif()
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

run_tool(dynamic ${READELF} -d ${LIBRARY})
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]]*\\]" needed "${dynamic}")
list(TRANSFORM needed REPLACE ".*\\[([^]]*)\\]" "\\1")
if(NOT needed STREQUAL "libc.so.6")
  message(SEND_ERROR "needs '${needed}', expected 'libc.so.6'")
endif()

run_tool(symbols ${NM} --dynamic --defined-only --format=posix ${LIBRARY})
string(REGEX MATCHALL "[^\n]+\n" lines "${symbols}")
list(TRANSFORM lines REPLACE " .*" "")
list(SORT lines)
if(NOT lines STREQUAL expected_exports)
  message(SEND_ERROR "defines '${lines}', expected '${expected_exports}'")
endif()

string(REPLACE ";" " " lines "${lines}")
message(STATUS "needed: ${needed}; exports: ${lines}")
