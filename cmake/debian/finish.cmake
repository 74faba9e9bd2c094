# Run by cpack when the files of both packages are laid out, before they are packed: what Debian
# wants of a package and no other installation has.

# The date is that of the newest change, so that the same source makes the same package.
execute_process(COMMAND git -C ${CPACK_QUORL_SOURCE} log -1 --format=%cD
                OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT date)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()

function(compress file)
  execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} key)
  set(package ${CPACK_DEBIAN_${key}_PACKAGE_NAME})
  set(usr ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
  set(doc ${usr}/share/doc/${package})

  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${doc}/copyright COPYONLY)
  file(WRITE ${doc}/changelog "${package} (${CPACK_PACKAGE_VERSION}) stable; urgency=medium\n\n"
       "  * See CHANGELOG.md.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  compress(${doc}/changelog)
  file(GLOB pages ${usr}/share/man/man*/*.[1-9])
  foreach(page IN LISTS pages)
    compress(${page})
  endforeach()
endforeach()

# Where Wireshark looks for what all users have.
if(EXISTS ${CPACK_TEMPORARY_DIRECTORY}/quorl/usr/share/quorl/quorl.lua)
  set(plugins ${CPACK_TEMPORARY_DIRECTORY}/quorl/usr/lib/${CPACK_QUORL_MULTIARCH}/wireshark/plugins)
  file(MAKE_DIRECTORY ${plugins})
  file(CREATE_LINK ../../../../share/quorl/quorl.lua ${plugins}/quorl.lua SYMBOLIC)
endif()
