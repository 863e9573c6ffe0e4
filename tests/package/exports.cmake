# What the built library shows to the dynamic linker: its two exports, its name, and nothing that slows or weakens it.
# Usage: cmake -DNM=... -DREADELF=... -DLIBRARY=... -P exports.cmake

function(expect what actual expected)
  if(NOT actual STREQUAL expected)
    message(SEND_ERROR "${what}\n  is:       ${actual}\n  expected: ${expected}")
  endif()
endfunction()

execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY}
  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" symbols "${symbols}")
list(TRANSFORM symbols REPLACE " [0-9a-f]+.*$" "")
expect("defined dynamic symbols" "${symbols}" "LEASTSQ_PRONY_SVD T;createFDTDCalcApi T")

execute_process(COMMAND ${READELF} -dW ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "Library soname: [^\n]+" soname "${dynamic}")
expect("name" "${soname}" "Library soname: [libtessel.so.1]")
string(REGEX MATCHALL "Shared library: [^\n]+" needed "${dynamic}")
foreach(library IN LISTS needed)
  if(library MATCHES "blas|lapack|arpack|minpack")
    message(SEND_ERROR "a solver is linked dynamically: ${library}")
  endif()
endforeach()
if(dynamic MATCHES "TEXTREL|RPATH|RUNPATH" OR NOT dynamic MATCHES "BIND_NOW")
  message(SEND_ERROR "relocations in the text, a search path, or late binding:\n${dynamic}")
endif()

# The trace levels of ARPACK: 24 integers that start as zeros (.bss).
execute_process(COMMAND ${READELF} -sW ${LIBRARY} OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${READELF} -SW ${LIBRARY} OUTPUT_VARIABLE sections COMMAND_ERROR_IS_FATAL ANY)
if(NOT table MATCHES " 96 OBJECT +LOCAL +[A-Z]+ +([0-9]+) debug_\n")
  message(FATAL_ERROR "the trace levels are not a local object of 24 integers")
endif()
string(REGEX MATCH "\\[ *${CMAKE_MATCH_1}\\] ([^ ]+)" section "${sections}")
expect("section of the trace levels" "${CMAKE_MATCH_1}" ".bss")
