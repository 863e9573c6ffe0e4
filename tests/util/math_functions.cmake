# What the own routines and the library of modes take from the mathematical library: nothing but what is exact or made of
# exact operations in every build of it. The rest is chosen by processor, or is an instruction whose last bits are the
# maker's; in its place stand the functions of common/elementary.h.
# Usage: cmake -DNM=... -DLIBM=... -DOBJECTS=A;B;... -P math_functions.cmake
cmake_minimum_required(VERSION 3.25)
set(allowed cabs cabsl csqrt csqrtl fabs fabsl frexp hypot hypotl ldexp llround lround remainder remainderl round sincosl sqrt
  sqrtl)

execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBM}
  OUTPUT_VARIABLE offered COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${NM} -u --format=posix ${OBJECTS} OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" offered "${offered}")
list(TRANSFORM offered REPLACE "[@ ].*$" "")
string(REGEX MATCHALL "[^\n]+" wanted "${wanted}")
list(TRANSFORM wanted REPLACE " .*$" "")
list(REMOVE_DUPLICATES wanted)
if(NOT "log" IN_LIST offered OR NOT "malloc" IN_LIST wanted)
  message(FATAL_ERROR "the symbols cannot be read")
endif()
foreach(name IN LISTS wanted)
  if(name IN_LIST offered AND NOT name IN_LIST allowed)
    message(SEND_ERROR "the own routines call ${name} of the mathematical library")
  endif()
endforeach()
