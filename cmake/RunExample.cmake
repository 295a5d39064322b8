# Runs one example scenario and compares its output with the expected file.
#   cmake -DSIM=<fabvxlan-sim> -DSCENARIO=<x.json> -DEXPECTED=<x.expected> -P RunExample.cmake
# After an intended change, regenerate the expected files with `make examples`.
get_filename_component(name ${SCENARIO} NAME_WE)
execute_process(COMMAND ${SIM} ${SCENARIO} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${name}: fabvxlan-sim failed (${status}):\n${errors}")
endif()
# The output names the scenario by its path; the expected file by examples/<name>.json.
file(READ ${EXPECTED} expected)
string(REPLACE "${SCENARIO}" "examples/${name}.json" output "${output}")
if(NOT output STREQUAL expected)
  set(actual ${CMAKE_CURRENT_BINARY_DIR}/${name}.actual)
  file(WRITE ${actual} "${output}")
  execute_process(COMMAND diff -u ${EXPECTED} ${actual})
  message(FATAL_ERROR "${name}: output differs from ${EXPECTED} (see the diff above; `make examples` regenerates)")
endif()
