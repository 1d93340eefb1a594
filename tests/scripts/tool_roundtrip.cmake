# sample.stl -> .vnm (lossless) -> .ply -> .vnm (quantised, version 2) -> .off; the counts must
# survive every step, and info on the compressed file reports the coded connectivity.
file(MAKE_DIRECTORY ${OUT})
foreach(step "${SAMPLE};${OUT}/a.vnm;--lossless" "${OUT}/a.vnm;${OUT}/b.ply;--binary"
             "${OUT}/b.ply;${OUT}/c.vnm;--precision;0.001;--version2" "${OUT}/c.vnm;${OUT}/d.off")
  execute_process(COMMAND ${TOOL} convert ${step} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "960 vertices, 1920 triangles")
    message(FATAL_ERROR "convert ${step}: ${rc} ${out} ${err}")
  endif()
endforeach()
execute_process(COMMAND ${TOOL} info ${OUT}/a.vnm --json RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out MATCHES "\"compressed\": true" OR NOT out MATCHES "\"mode\": \"lossless\"")
  message(FATAL_ERROR "info a.vnm: ${out}")
endif()
execute_process(COMMAND ${TOOL} info ${OUT}/c.vnm --json RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out MATCHES "\"version\": 2" OR NOT out MATCHES "\"mode\": \"quantized\"")
  message(FATAL_ERROR "info c.vnm: ${out}")
endif()
