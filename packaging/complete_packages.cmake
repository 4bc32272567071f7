# Run by CPack between installing into the packages' folders and packing those: adds what Debian wants in each
# package, and gives all files one time, that of SOURCE_DATE_EPOCH, so that packages can be made again to the byte.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(package ${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})
  set(documents ${root}/usr/share/doc/${package})
  if(component STREQUAL "development")
    file(RENAME ${root}/usr/share/doc/tarvo ${documents})
  endif()
  file(MAKE_DIRECTORY ${documents})
  file(COPY_FILE ${CPACK_TARVO_COPYRIGHT} ${documents}/copyright)

  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
  file(WRITE ${documents}/changelog.Debian
       "tarvo (${version}) unstable; urgency=medium\n\n  * See changelog.gz.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  file(COPY_FILE ${CPACK_TARVO_CHANGES} ${documents}/changelog)
  file(GLOB_RECURSE archives ${root}/usr/lib/*.a)
  if(archives)
    execute_process(COMMAND strip --strip-debug --enable-deterministic-archives ${archives} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(GLOB_RECURSE packed ${documents}/changelog* ${root}/usr/share/man/*)
  execute_process(COMMAND gzip -9n ${packed} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND find ${root} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
