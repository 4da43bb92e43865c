# SPDX-License-Identifier: Apache-2.0
# Two steps of "cpack -G DEB" (CPACK_PRE_BUILD_SCRIPTS and CPACK_POST_BUILD_SCRIPTS).
#
# Before the packages are made, on the staged tree: the compiler's identification in
# each program's .comment section is of no use at run time and is left out of the
# debugging information too, as the distribution's own packages do. The stripping and
# the split into -dbgsym are CPack's.
#
# After: CPack's -dbgsym package lists its files in md5sums by their paths in the
# staging tree, keeps the programs' execute bits on the .debug files and has no
# documentation folder. It is unpacked, mended as debhelper would have made it (files
# 0644, md5sums by package path, /usr/share/doc/strata-launcher-dbgsym a link to the
# main package's folder, whose copyright covers it) and packed again. lintian notes
# that it cannot follow that link (cannot-check-whether-usr-share-doc-symlink-points-
# to-foreign-package, informational): it could only within the group of one source
# upload, and these packages come from cpack, not from a source package. The link is
# right: -dbgsym depends on the main package of the same version.
if(NOT DEFINED CPACK_PACKAGE_FILES)
  file(GLOB_RECURSE staged LIST_DIRECTORIES false "${CPACK_TEMPORARY_DIRECTORY}/*")
  foreach(file IN LISTS staged)
    file(READ "${file}" magic LIMIT 4 HEX)
    if(magic STREQUAL "7f454c46" AND NOT IS_SYMLINK "${file}")
      execute_process(COMMAND "${CPACK_OBJCOPY_EXECUTABLE}" --remove-section=.comment "${file}"
        RESULT_VARIABLE status ERROR_VARIABLE error)
      if(NOT status EQUAL 0)
        message(FATAL_ERROR "objcopy --remove-section=.comment ${file}: ${error}")
      endif()
    endif()
  endforeach()
  return()
endif()

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status ERROR_VARIABLE error)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command}: ${error}")
  endif()
endfunction()

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "-dbgsym_[^/]*$")
    continue()
  endif()
  set(tree "${package}.tree")
  file(REMOVE_RECURSE "${tree}")
  run(dpkg-deb -R "${package}" "${tree}")
  file(GLOB_RECURSE debug_files LIST_DIRECTORIES false RELATIVE "${tree}" "${tree}/usr/*")
  set(md5sums "")
  foreach(file IN LISTS debug_files)
    file(CHMOD "${tree}/${file}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    file(MD5 "${tree}/${file}" sum)
    string(APPEND md5sums "${sum}  ${file}\n")
  endforeach()
  file(WRITE "${tree}/DEBIAN/md5sums" "${md5sums}")
  file(MAKE_DIRECTORY "${tree}/usr/share/doc")
  file(CREATE_LINK strata-launcher "${tree}/usr/share/doc/strata-launcher-dbgsym" SYMBOLIC)
  file(REMOVE "${package}")
  run(dpkg-deb --root-owner-group -Zgzip --build "${tree}" "${package}")
  file(REMOVE_RECURSE "${tree}")
endforeach()
