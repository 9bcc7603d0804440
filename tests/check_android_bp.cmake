# Checks that Android.bp builds the product library from the same sources as
# the CMake build.
#   cmake -DBP=Android.bp -DSOURCES=<file listing the CMake sources> -P this-file
file(READ ${BP} bp)
if(NOT bp MATCHES "srcs: \\[([^]]*)\\]")
  message(FATAL_ERROR "${BP}: no srcs list")
endif()
string(REGEX MATCHALL "\"[^\"]+\"" bp_srcs "${CMAKE_MATCH_1}")
string(REPLACE "\"" "" bp_srcs "${bp_srcs}")
list(SORT bp_srcs)

file(STRINGS ${SOURCES} cmake_srcs)
list(SORT cmake_srcs)

if(NOT bp_srcs STREQUAL cmake_srcs)
  message(FATAL_ERROR "source lists differ:\n  Android.bp: ${bp_srcs}\n  CMake:      ${cmake_srcs}")
endif()
message(STATUS "Android.bp and CMake build the same sources: ${bp_srcs}")
