# What is installed besides the programs and the client library, and the Debian packages that
# scripts/package makes of it all. Whatever stands in share/ and docs/ goes along.

get_property(tools GLOBAL PROPERTY QUORL_TOOL_PROGRAMS)

# Everything that is installed, and no test.
add_custom_target(programs DEPENDS quorl ${tools})
if(TARGET quorl_client)
  add_dependencies(programs quorl_client)
endif()

# The heading of every page is written here, with the one version number there is.
file(GLOB pages CONFIGURE_DEPENDS share/man/man1/*.1)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${pages})
foreach(page IN LISTS pages)
  get_filename_component(name ${page} NAME_WE)
  string(TOUPPER ${name} title)
  file(READ ${page} text)
  string(REGEX REPLACE "(^|\n)\\.TH[^\n]*"
         "\\1.TH ${title} 1 \"\" \"quorl ${PROJECT_VERSION}\" quorl" text "${text}")
  file(WRITE ${PROJECT_BINARY_DIR}/share/man/man1/${name}.1 "${text}")
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/share/man/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})

install(DIRECTORY share/quorl DESTINATION ${CMAKE_INSTALL_DATADIR})
install(DIRECTORY plans DESTINATION ${CMAKE_INSTALL_DATADIR}/quorl)

# One file for all; bash looks for it by the name of the program.
set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES share/bash-completion/completions/quorl DESTINATION ${completions})
foreach(tool IN LISTS tools)
  set(link ${PROJECT_BINARY_DIR}/share/bash-completion/completions/${tool})
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/share/bash-completion/completions)
  file(CREATE_LINK quorl ${link} SYMBOLIC)
  install(FILES ${link} DESTINATION ${completions})
endforeach()

install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES client/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/client)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
set(client_docs ${CMAKE_INSTALL_DATAROOTDIR}/doc/libquorl-client-dev)
install(FILES client/README.md DESTINATION ${client_docs} COMPONENT client)
install(DIRECTORY examples/client DESTINATION ${client_docs}/examples COMPONENT client)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} REGEX "/examples/client$" EXCLUDE)

# cpack: two packages, quorl and libquorl-client-dev.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL quorl client)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS  # whatever the umask
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
set(CPACK_QUORL_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_QUORL_MULTIARCH ${CMAKE_LIBRARY_ARCHITECTURE})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_CONTACT "quorl developers <developers@quorl.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # would stand above both descriptions

set(CPACK_DEBIAN_QUORL_PACKAGE_NAME quorl)
set(CPACK_DEBIAN_QUORL_PACKAGE_SECTION net)
set(CPACK_DEBIAN_QUORL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_QUORL_PACKAGE_SUGGESTS "bash-completion, wireshark")
set(CPACK_COMPONENT_QUORL_DESCRIPTION
"exchange simulator for test benches of trading clients
One process publishes a DEEP feed in IEX-TP packets on UDP multicast, fills
gaps, serves images of the market, and accepts FIX 4.2 order-entry sessions.
It misbehaves on demand and writes down what it decided, so that a trading
client can be certified against it. The programs around it are here, too.")

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME libquorl-client-dev)
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CLIENT_PACKAGE_DEPENDS "libstdc++-12-dev | libstdc++-dev")
set(CPACK_DEBIAN_CLIENT_PACKAGE_SUGGESTS "cmake, quorl")
set(CPACK_COMPONENT_CLIENT_DESCRIPTION
"client library of the exchange simulator quorl
The other end of every wire of the exchange, in C++20, for tests of one's own:
feed and recovery, FIX sessions, the control port, and the files that the
exchange writes. What arrives is held to its format byte by byte.")
include(CPack)
