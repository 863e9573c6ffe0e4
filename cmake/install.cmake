# What an installation consists of: the libraries, the public headers and the Fortran modules' sources, the package files
# for find_package and pkg-config, the command, the Python package, what teaches them, and the notices of what is linked
# in. Every path in an installed file is relative to that file, so that a prefix can be moved.

include(CMakePackageConfigHelpers)
set(TESSEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tessel)
set(TESSEL_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/tessel)

set_target_properties(tessel_headers PROPERTIES EXPORT_NAME headers)
install(TARGETS tessel tessel_modes tessel_headers EXPORT Tessel
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development)
install(FILES THIRD_PARTY_NOTICES CHANGELOG.md docs/guide-process.md docs/guide-resonances.md docs/method-modes.md
  docs/fields-cost.md docs/modes-time.svg DESTINATION ${TESSEL_DOC_DIR} COMPONENT Runtime)
install(DIRECTORY docs/figures DESTINATION ${TESSEL_DOC_DIR} COMPONENT Runtime FILES_MATCHING PATTERN *.png)

install(FILES ${TESSEL_PUBLIC_HEADERS} bindings/fortran/tessel.f90 bindings/fortran/tessel_modes.f90
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessel COMPONENT Development)
install(FILES docs/man/LEASTSQ_PRONY_SVD.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT Development)

install(EXPORT Tessel NAMESPACE Tessel:: FILE TesselTargets.cmake
  DESTINATION ${TESSEL_CMAKE_DIR} COMPONENT Development)
configure_package_config_file(cmake/TesselConfig.cmake.in TesselConfig.cmake
  INSTALL_DESTINATION ${TESSEL_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(TesselConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TesselConfig.cmake ${PROJECT_BINARY_DIR}/TesselConfigVersion.cmake
  DESTINATION ${TESSEL_CMAKE_DIR} COMPONENT Development)

file(RELATIVE_PATH TESSEL_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" TESSEL_PREFIX_FROM_PC ${TESSEL_PREFIX_FROM_PC})
configure_file(cmake/tessel.pc.in tessel.pc @ONLY)
configure_file(cmake/tessel-modes.pc.in tessel-modes.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tessel.pc ${PROJECT_BINARY_DIR}/tessel-modes.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# Hosts to start from, beside the sample records.
install(DIRECTORY examples/consumers DESTINATION ${TESSEL_DOC_DIR}/examples COMPONENT Development)
install(FILES examples/README.md DESTINATION ${TESSEL_DOC_DIR}/examples COMPONENT Development)

# The command, with what teaches it: the manual page, and records to try it on.
if(TESSEL_BUILD_COMMAND)
  install(TARGETS tessel_modes_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Command)
  install(FILES docs/man/tessel-modes.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Command)
  install(FILES app/completion/tessel-modes
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT Command)
  install(FILES docs/tessel-modes.schema.json DESTINATION ${TESSEL_DOC_DIR} COMPONENT Command)
  if(TESSEL_BUILD_FIELDS)
    install(TARGETS tessel_fields_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Command)
    install(FILES docs/tessel-fields.schema.json DESTINATION ${TESSEL_DOC_DIR} COMPONENT Command)
    install(FILES docs/man/tessel-fields.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Command)
    install(FILES app/completion/tessel-fields
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT Command)
    if(TESSEL_BUILD_MPI)
      install(TARGETS tessel_fields_mpi tessel_modes_mpi RUNTIME DESTINATION ${TESSEL_MPI_DIR} COMPONENT Parallel)
    endif()
  endif()
  install(DIRECTORY examples/records DESTINATION ${TESSEL_DOC_DIR}/examples COMPONENT Command USE_SOURCE_PERMISSIONS)
endif()

# Packages, made by `cmake --build build/release --target package`: a tarball of the whole, and Debian packages.
if(PROJECT_IS_TOP_LEVEL)
  set(TESSEL_PACKAGE_CONTACT "Tessel developers <tessel@example.org>" CACHE STRING
    "Maintainer named in the Debian packages: a name, and an address in brackets")
  set(CPACK_GENERATOR TGZ DEB)
  set(CPACK_PACKAGE_NAME tessel)
  set(CPACK_PACKAGE_CONTACT ${TESSEL_PACKAGE_CONTACT})
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each Debian package has one of its own: the first line of its description
  set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
  set(CPACK_SYSTEM_NAME linux-x86_64)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_COMPONENTS_ALL Runtime Development)
  if(TESSEL_BUILD_PYTHON)
    list(APPEND CPACK_COMPONENTS_ALL Python)
  endif()
  if(TESSEL_BUILD_COMMAND)
    list(APPEND CPACK_COMPONENTS_ALL Command)
  endif()
  if(TESSEL_BUILD_FIELDS AND TESSEL_BUILD_MPI)
    list(APPEND CPACK_COMPONENTS_ALL Parallel)
  endif()

  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
  set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
  set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/complete.cmake)
  set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtessel${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "\
modes of field records, Prony fits and dense solvers: shared libraries
The libraries, as a host program links or loads them, and the guides.")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtessel-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${version})")
  set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "\
modes of field records, Prony fits and dense solvers: development files
Headers for C and C++, the Fortran modules' sources, CMake and pkg-config
files, the manual page of the fit, and hosts to start from.")
  if(TESSEL_BUILD_PYTHON)
    # The extension is made for one version of the interpreter.
    math(EXPR next "${TESSEL_PYTHON_MINOR} + 1")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-tessel)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}) # the libraries are of another package
    string(JOIN ", " CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
      "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${version})" "python3-numpy"
      "python3 (>= 3.${TESSEL_PYTHON_MINOR}~)" "python3 (<< 3.${next}~)")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-matplotlib)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
      ${PROJECT_SOURCE_DIR}/cmake/debian/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/prerm)
    set(CPACK_DEBIAN_PYTHON_DESCRIPTION "\
modes of field records, with standard errors, from Python
The package tessel: find_modes, which finds the modes of a record in an array,
find_modes_jointly, which takes several, and prony, the fit of given order.")
  endif()
  set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME tessel-modes)
  set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION science)
  set(CPACK_DEBIAN_COMMAND_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}) # the libraries that the command links
  set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${version})")
  set(CPACK_DEBIAN_COMMAND_PACKAGE_SUGGESTS gnuplot-nox)
  set(CPACK_DEBIAN_COMMAND_DESCRIPTION "\
modes of field records, with standard errors, from the shell
The command tessel-modes finds the modes in records of a field solver: text,
gzip, NumPy and HDF5 files; tessel-fields finds those of a whole field in an
HDF5 file, with their profiles. With sample records.")
  set(CPACK_DEBIAN_PARALLEL_PACKAGE_NAME tessel-mpi)
  set(CPACK_DEBIAN_PARALLEL_PACKAGE_SECTION science)
  set(CPACK_DEBIAN_PARALLEL_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PARALLEL_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${version}), tessel-modes (= ${version}), openmpi-bin")
  set(CPACK_DEBIAN_PARALLEL_DESCRIPTION "\
modes of whole fields and many records, by several processes
What tessel-fields and tessel-modes become under mpirun (Open MPI), with
parallel HDF5.")
  include(CPack)
endif()
