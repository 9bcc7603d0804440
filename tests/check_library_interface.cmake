# Checks the product library's binary interface: the exported, demangled
# symbols must equal the list kept in the tree, and its DT_NEEDED entries must
# name the platform libraries it is linked against on a device.
#   cmake -DNM=... -DREADELF=... -DLIBRARY=... -DEXPECTED=... -P this-file
execute_process(COMMAND ${NM} -D -C --defined-only ${LIBRARY}
                OUTPUT_VARIABLE nm_out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" nm_lines "${nm_out}")
set(actual "")
foreach(line IN LISTS nm_lines)
  if(line MATCHES "^[0-9a-fA-F]+ [A-Za-z] (.+)$")
    list(APPEND actual "${CMAKE_MATCH_1}")
  endif()
endforeach()
list(REMOVE_DUPLICATES actual)
list(SORT actual)

file(STRINGS ${EXPECTED} expected)
list(FILTER expected EXCLUDE REGEX "^(#.*)?$")
list(SORT expected)

set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(extra ${actual})
list(REMOVE_ITEM extra ${expected})
set(failed FALSE)
foreach(s IN LISTS missing)
  message(STDERR "no longer exported: ${s}")
  set(failed TRUE)
endforeach()
foreach(s IN LISTS extra)
  message(STDERR "newly exported:     ${s}")
  set(failed TRUE)
endforeach()

execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dyn)
foreach(lib libcom.kovani.metadatautils.so libcom.kovani.pluginutils.so
            libcom.kovani.debug.so liblog.so)
  if(NOT dyn MATCHES "NEEDED[^\n]*\\[${lib}")
    message(STDERR "DT_NEEDED lacks ${lib}")
    set(failed TRUE)
  endif()
endforeach()

if(failed)
  message(FATAL_ERROR "the library's interface differs from ${EXPECTED}")
endif()
list(LENGTH actual n)
message(STATUS "${n} exported symbols as listed; platform libraries needed")
