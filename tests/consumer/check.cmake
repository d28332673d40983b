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

# The same program built through pkg-config, where there is one.
find_program(PKG_CONFIG NAMES pkg-config pkgconf)
if(PKG_CONFIG AND NOT WIN32)
  file(GLOB pc_dirs "${WORK_DIR}/prefix/lib*/pkgconfig" "${WORK_DIR}/prefix/lib/*/pkgconfig")
  string(REPLACE ";" ":" pc_path "${pc_dirs}")
  set(ENV{PKG_CONFIG_PATH} "${pc_path}")
  execute_process(COMMAND "${PKG_CONFIG}" --cflags --libs qo OUTPUT_VARIABLE pc_flags RESULT_VARIABLE rc
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(rc)
    message(FATAL_ERROR "pkg-config does not know qo")
  endif()
  separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
  string(REGEX MATCH "-L[^ ;]+" pc_libdir "${pc_flags}")
  string(SUBSTRING "${pc_libdir}" 2 -1 pc_libdir)
  execute_process(COMMAND "${CXX}" "${SOURCE_DIR}/main.cpp" -o "${WORK_DIR}/qo_consumer_pc" ${pc_flags}
                          "-Wl,-rpath,${pc_libdir}" RESULT_VARIABLE rc)
  if(rc)
    message(FATAL_ERROR "build of the consumer through pkg-config failed")
  endif()
  execute_process(COMMAND "${WORK_DIR}/qo_consumer_pc" RESULT_VARIABLE rc)
  if(rc)
    message(FATAL_ERROR "the consumer built through pkg-config failed")
  endif()
endif()

# What is installed and what is not: public headers only, the man page, and
# programs that start from a clean environment.
foreach(internal platform/posix platform/win32)
  if(EXISTS "${WORK_DIR}/prefix/include/qo/${internal}")
    message(FATAL_ERROR "internal headers installed: include/qo/${internal}")
  endif()
endforeach()
if(EXISTS "${WORK_DIR}/prefix/bin/qo-backup" AND NOT WIN32)
  if(NOT EXISTS "${WORK_DIR}/prefix/share/man/man1/qo-backup.1")
    message(FATAL_ERROR "the man page qo-backup.1 is not installed")
  endif()
  execute_process(COMMAND env -u LD_LIBRARY_PATH "${WORK_DIR}/prefix/bin/qo-backup" --version
                  OUTPUT_VARIABLE version RESULT_VARIABLE rc)
  if(rc OR NOT version MATCHES "^qo-backup [0-9]")
    message(FATAL_ERROR "the installed qo-backup does not start by itself: ${rc} ${version}")
  endif()
endif()
message(STATUS "consumer ok: find_package, pkg-config, installed files")
