# What Debian's policy asks of a package beyond what CPack puts into it; run by CPack when the packages are there.
# Each is taken apart, completed and packed again: manual pages and changelogs are compressed, the terms of copying stand
# where they are looked for, the linker's cache is brought up to date by a trigger, programs and libraries have no search
# path of their own, and the size is that of the files, not of symbolic links' targets too.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH if it is set
set(source ${CMAKE_CURRENT_LIST_DIR}/../..)
set(root ${CPACK_TEMPORARY_DIRECTORY}-complete)

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${root} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE output)
  set(output "${output}" PARENT_SCOPE)
endfunction()

foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  file(REMOVE_RECURSE ${root})
  file(MAKE_DIRECTORY ${root})
  run(dpkg-deb --raw-extract ${deb} ${root})
  file(READ ${root}/DEBIAN/control control)
  string(REGEX REPLACE ".*Package: ([^\n]+).*" "\\1" package "${control}")
  string(REGEX REPLACE ".*\nVersion: ([^\n]+).*" "\\1" version "${control}")
  set(doc ${root}/usr/share/doc/${package})

  file(READ ${CMAKE_CURRENT_LIST_DIR}/copyright copyright)
  file(READ ${source}/THIRD_PARTY_NOTICES notices)
  file(WRITE ${doc}/copyright "${copyright}\n${notices}")
  file(READ ${source}/CHANGELOG.md changelog)
  file(WRITE ${doc}/changelog "${changelog}")
  file(WRITE ${doc}/changelog.Debian "tessel (${version}) unstable; urgency=medium\n\n\
  * Version ${CPACK_PACKAGE_VERSION}; see changelog.gz.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  file(READ ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides overrides)
  file(WRITE ${root}/usr/share/lintian/overrides/${package} "${overrides}")
  file(GLOB pages ${root}/usr/share/man/man*/*)
  run(gzip -9n ${pages} ${doc}/changelog ${doc}/changelog.Debian)

  file(GLOB_RECURSE binaries ${root}/usr/bin/* ${root}/usr/lib/*.so* ${root}/usr/lib/tessel/*)
  foreach(file IN LISTS binaries)
    if(NOT IS_SYMLINK ${file})
      file(RPATH_REMOVE FILE ${file})
    endif()
  endforeach()
  if(EXISTS ${root}/DEBIAN/shlibs)
    file(REMOVE ${root}/DEBIAN/postinst ${root}/DEBIAN/postrm)
    file(WRITE ${root}/DEBIAN/triggers "activate-noawait ldconfig\n")
  endif()

  run(chmod -R u=rwX,go=rX .)
  run(sh -c "find usr -type f -print0 | LC_ALL=C sort -z | xargs -0 md5sum")
  file(WRITE ${root}/DEBIAN/md5sums "${output}")
  run(du --apparent-size --summarize --block-size=1K usr)
  string(REGEX MATCH "^[0-9]+" size "${output}")
  string(REGEX REPLACE "\nInstalled-Size: [0-9]+\n+" "\nInstalled-Size: ${size}\n" control "${control}")
  file(WRITE ${root}/DEBIAN/control "${control}")
  run(dpkg-deb --root-owner-group --build ${root} ${deb})
endforeach()
file(REMOVE_RECURSE ${root})
