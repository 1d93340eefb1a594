# A consumer project builds and runs against the installed package.
set(_san_flags "")
if(VNIO_SANITIZE)
  set(_san_flags "-fsanitize=address,undefined")
endif()
add_test(NAME install_consumer
  COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${PROJECT_BINARY_DIR} -DSOURCE_DIR=${CMAKE_CURRENT_SOURCE_DIR}/consumer
          -DCXX_COMPILER=${CMAKE_CXX_COMPILER} -DCXX_FLAGS=${_san_flags} -DLINK_FLAGS=${_san_flags}
          -P ${CMAKE_CURRENT_SOURCE_DIR}/scripts/consumer_run.cmake)
set_tests_properties(install_consumer PROPERTIES TIMEOUT 600 RUN_SERIAL TRUE)
