# HDF5, of which a machine may have two: the plain one, and one by which several processes write a file together. An
# object file is compiled for one of them, and no program may link both.
find_package(HDF5 1.10 REQUIRED COMPONENTS C)
if(HDF5_IS_PARALLEL)
  message(FATAL_ERROR "The HDF5 found is the parallel one: ${HDF5_LIBRARIES}; the commands need the plain one too (libhdf5-dev)")
endif()
add_library(tessel_hdf5 INTERFACE)
target_include_directories(tessel_hdf5 SYSTEM INTERFACE ${HDF5_INCLUDE_DIRS})
target_compile_definitions(tessel_hdf5 INTERFACE ${HDF5_DEFINITIONS})
target_link_libraries(tessel_hdf5 INTERFACE ${HDF5_LIBRARIES})
