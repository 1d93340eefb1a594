# The vnio tool end to end: the demo writes and reads back every format; usage errors
# exit with 2 and a missing file with 1.
add_test(NAME vnio_demo COMMAND vnio_tool demo ${CMAKE_CURRENT_BINARY_DIR}/demo-out
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME vnio_info_json COMMAND vnio_tool info ${PROJECT_SOURCE_DIR}/examples/sample.stl --json)
set_tests_properties(vnio_info_json PROPERTIES PASS_REGULAR_EXPRESSION
  "\"vertices\": 960, \"triangles\": 1920, \"components\": 1, \"boundary_loops\": 0")
add_test(NAME vnio_usage_exit_2 COMMAND vnio_tool convert onlyone.stl)
set_tests_properties(vnio_usage_exit_2 PROPERTIES WILL_FAIL TRUE)
add_test(NAME vnio_missing_file COMMAND vnio_tool info ${CMAKE_CURRENT_BINARY_DIR}/no-such-file.stl)
set_tests_properties(vnio_missing_file PROPERTIES WILL_FAIL TRUE)
add_test(NAME vnio_convert_vnm_roundtrip COMMAND ${CMAKE_COMMAND}
         -DTOOL=$<TARGET_FILE:vnio_tool> -DSAMPLE=${PROJECT_SOURCE_DIR}/examples/sample.stl -DOUT=${CMAKE_CURRENT_BINARY_DIR}/tool-out
         -P ${CMAKE_CURRENT_SOURCE_DIR}/scripts/tool_roundtrip.cmake)
