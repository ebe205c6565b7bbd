# Installs the build into a scratch prefix, then configures, builds and runs a consumer
# with the same compiler flags (a sanitizer build needs its runtime at link time).
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build
                        -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX}
                        "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}"
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out)
message(STATUS "${out}")
if(rc)
  message(FATAL_ERROR "consumer run failed")
endif()
if(NOT EXISTS ${prefix}/lib/pkgconfig/meshcore.pc AND NOT EXISTS ${prefix}/lib64/pkgconfig/meshcore.pc)
  file(GLOB_RECURSE pcs ${prefix}/*/meshcore.pc)
  if(NOT pcs)
    message(FATAL_ERROR "meshcore.pc not installed")
  endif()
endif()
