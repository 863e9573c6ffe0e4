# The solver archives: OpenBLAS (serial), ARPACK and MINPACK, linked statically and hidden, so that the library never
# meets the BLAS or LAPACK of its host. `tessel_solvers` carries them with the remedies that the packaged OpenBLAS
# needs before it is fit for a host's process:
#
#   * its table of work buffers is replaced, its ZGEMV reads no element behind the end of a vector, XERBLA reports for
#     the routines of the interface alone and, in the library, the environment that it sees is empty
#     (common/openblas_guard.cpp);
#   * its ZGESV leaves A unfactored when NRHS = 0: the reference LAPACK's driver takes its place, on the same ZGETRF.
#
# It takes the other's place by standing, as an object, ahead of the archive. Beside it stand the reference BLAS's norms,
# for the own decomposition.

set(TESSEL_SOLVER_PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
find_library(OPENBLAS_ARCHIVE libopenblas.a PATHS ${TESSEL_SOLVER_PATHS}/openblas-serial NO_DEFAULT_PATH REQUIRED)
find_library(ARPACK_ARCHIVE libarpack.a PATHS ${TESSEL_SOLVER_PATHS} NO_DEFAULT_PATH REQUIRED)
find_library(MINPACK_ARCHIVE libminpack.a PATHS ${TESSEL_SOLVER_PATHS} NO_DEFAULT_PATH REQUIRED)
find_library(REFERENCE_BLAS_ARCHIVE libblas.a PATHS ${TESSEL_SOLVER_PATHS}/blas NO_DEFAULT_PATH REQUIRED)
find_library(REFERENCE_LAPACK_ARCHIVE liblapack_pic.a PATHS ${TESSEL_SOLVER_PATHS} NO_DEFAULT_PATH REQUIRED)

# Takes one object out of an archive, when the project is configured.
function(tessel_extract_member archive member output)
  set(folder ${CMAKE_BINARY_DIR}/members)
  file(MAKE_DIRECTORY ${folder})
  if(NOT EXISTS ${folder}/${member} OR ${archive} IS_NEWER_THAN ${folder}/${member})
    execute_process(COMMAND ${CMAKE_AR} x ${archive} ${member} WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  set(${output} ${folder}/${member} PARENT_SCOPE)
endfunction()

# Takes routines of the reference BLAS under names of their own, reference_NAME_: the own decomposition needs their bits,
# which the host's processor does not change, while LAPACK goes on with OpenBLAS's.
function(tessel_reference_blas output)
  set(renamed)
  foreach(name dcabs1 dnrm2 drotg dznrm2 zaxpy zdotc zscal zswap)
    list(APPEND renamed --redefine-sym ${name}_=reference_${name}_)
  endforeach()
  set(objects)
  foreach(name IN LISTS ARGN)
    tessel_extract_member(${REFERENCE_BLAS_ARCHIVE} ${name}.o member)
    set(object ${CMAKE_BINARY_DIR}/members/reference_${name}.o)
    if(NOT EXISTS ${object} OR ${member} IS_NEWER_THAN ${object})
      execute_process(COMMAND ${CMAKE_OBJCOPY} ${renamed} ${member} ${object} COMMAND_ERROR_IS_FATAL ANY)
    endif()
    list(APPEND objects ${object})
  endforeach()
  set(${output} ${objects} PARENT_SCOPE)
endfunction()
tessel_reference_blas(REFERENCE_NORM_OBJECTS dnrm2 dznrm2)

tessel_extract_member(${REFERENCE_LAPACK_ARCHIVE} zgesv.o ZGESV_OBJECT)

add_library(tessel_guard OBJECT common/openblas_guard.cpp)
target_link_libraries(tessel_guard PRIVATE tessel_options)

add_library(tessel_solvers INTERFACE)
target_link_libraries(tessel_solvers INTERFACE
  $<TARGET_OBJECTS:tessel_guard> ${ZGESV_OBJECT} ${REFERENCE_NORM_OBJECTS}
  ${ARPACK_ARCHIVE} ${MINPACK_ARCHIVE} ${OPENBLAS_ARCHIVE} gfortran m)
target_link_options(tessel_solvers INTERFACE
  LINKER:--wrap=blas_memory_alloc,--wrap=blas_memory_free,--wrap=xerbla_,--wrap=zgemv_)
