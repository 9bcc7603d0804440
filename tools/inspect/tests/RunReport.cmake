# Runs metautils-inspect from the source tree and checks what it did.
#
#   cmake -DTOOL=<program> [-DEMULATOR=<runner>] -DSOURCE_DIR=<repository> -DARGS=<a|b|...>
#         (-DGOLDEN=<file> [-DOUTPUT=<file>] | -DEXPECT_OUTPUT=<text|text...>
#          | -DEXPECT_ERROR=<text>) -P RunReport.cmake
#
# GOLDEN: the run must succeed, and what it printed (or wrote to OUTPUT) must
# equal the golden file, log line numbers masked so that editing the library
# does not break the comparison. With INSPECT_UPDATE_GOLDEN=1 in the
# environment the golden file is rewritten instead: review the difference
# before committing it.
# EXPECT_OUTPUT: the run must succeed and print each "|"-separated text.
# EXPECT_ERROR: the run must fail, print nothing on standard output and
# print the text on standard error.
string(REPLACE "|" ";" ARGS "${ARGS}")
execute_process(COMMAND ${EMULATOR} ${TOOL} ${ARGS}
  WORKING_DIRECTORY ${SOURCE_DIR}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)

if(DEFINED EXPECT_ERROR)
  if(status EQUAL 0)
    message(FATAL_ERROR "expected a failure, got status 0")
  endif()
  if(NOT out STREQUAL "")
    message(FATAL_ERROR "printed a report although it failed:\n${out}")
  endif()
  string(FIND "${err}" "${EXPECT_ERROR}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "expected on standard error:\n${EXPECT_ERROR}\ngot:\n${err}")
  endif()
  return()
endif()

if(NOT status EQUAL 0)
  message(FATAL_ERROR "failed with status ${status}:\n${err}")
endif()
if(DEFINED EXPECT_OUTPUT)
  string(REPLACE "|" ";" texts "${EXPECT_OUTPUT}")
  foreach(text IN LISTS texts)
    string(FIND "${out}" "${text}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "expected in the report:\n${text}\ngot:\n${out}")
    endif()
  endforeach()
  return()
endif()
if(DEFINED OUTPUT)
  file(READ ${OUTPUT} out)
endif()
# "[MetaUtils.cpp][GetMetaData()]:[85] " and "MetaUtilsMtk.cpp:1143 GetGyroData()"
string(REGEX REPLACE "\\]:\\[[0-9]+\\]" "]:[#]" out "${out}")
string(REGEX REPLACE "\\.cpp:[0-9]+ " ".cpp:# " out "${out}")
if("$ENV{INSPECT_UPDATE_GOLDEN}" STREQUAL "1")
  file(WRITE ${GOLDEN} "${out}")
  return()
endif()
file(READ ${GOLDEN} golden)
if(NOT out STREQUAL golden)
  get_filename_component(name ${GOLDEN} NAME)
  set(actual ${CMAKE_CURRENT_BINARY_DIR}/actual-${name})
  file(WRITE ${actual} "${out}")
  execute_process(COMMAND diff -u ${GOLDEN} ${actual} OUTPUT_VARIABLE difference)
  message(FATAL_ERROR "differs from ${GOLDEN} (actual output in ${actual}):\n${difference}")
endif()
