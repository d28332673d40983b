# Installs the qo build tree into a scratch prefix, builds the consumer
# project against it with find_package(qo), and runs it.
# Arguments: -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -DCXX=...
file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix"
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${WORK_DIR}/build" -G Ninja
                        "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix" "-DCMAKE_CXX_COMPILER=${CXX}"
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configure of the consumer failed")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}/build" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "build of the consumer failed")
endif()
execute_process(COMMAND "${WORK_DIR}/build/qo_consumer" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "the consumer failed")
endif()
