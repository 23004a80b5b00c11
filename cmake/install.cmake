# What `cmake --install` puts where (GNUInstallDirs):
#   bin/                          twkey, softtoken
#   <libdir>/twkey/               libTWKey.so, libskftrace.so; the folder an
#                                 installed twkey hands the library as binPath
#   <libdir>/twkey/kdp/           the software token's two packages
#   include/twkey/twkey.h         entry points and identifiers for hosts
#   <libdir>/pkgconfig/twkey.pc, <libdir>/cmake/TWKey/
#   share/doc/twkey/              docs, examples; share/man, bash completion
include(CMakePackageConfigHelpers)

set(_pkglib ${TWKEY_INSTALL_PKGLIBDIR})
# Shared objects as Debian ships them: not executable.
set(_shlib_perms OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

install(TARGETS twkey softtoken RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS TWKey twkey_headers EXPORT TWKeyTargets
  LIBRARY DESTINATION ${_pkglib} PERMISSIONS ${_shlib_perms})
install(TARGETS skftrace LIBRARY DESTINATION ${_pkglib} PERMISSIONS ${_shlib_perms})

# Each shipped package: its config.xml beside the library it names.
foreach(_kdp softtoken:softtoken-skf softtoken-native:TWKeyDriver)
  string(REPLACE ":" ";" _kdp ${_kdp})
  list(GET _kdp 0 _name)
  list(GET _kdp 1 _target)
  install(TARGETS ${_target} LIBRARY DESTINATION ${_pkglib}/kdp/${_name} PERMISSIONS ${_shlib_perms})
  install(FILES ${PROJECT_SOURCE_DIR}/kdp/${_name}/config.xml DESTINATION ${_pkglib}/kdp/${_name})
endforeach()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/twkey DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# pkg-config names the prefix that it is installed into (cmake --install
# --prefix, DESTDIR left out), so its first line is written at install time.
configure_file(${CMAKE_CURRENT_LIST_DIR}/twkey.pc.in ${CMAKE_BINARY_DIR}/pc/twkey.pc.body @ONLY)
install(CODE "
  file(READ [[${CMAKE_BINARY_DIR}/pc/twkey.pc.body]] _body)
  file(WRITE [[${CMAKE_BINARY_DIR}/pc/twkey.pc]] \"prefix=\${CMAKE_INSTALL_PREFIX}\n\${_body}\")
  file(INSTALL [[${CMAKE_BINARY_DIR}/pc/twkey.pc]]
    DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")")

# CMake: relocatable, found by find_package(TWKey).
set(_cmakedir ${CMAKE_INSTALL_LIBDIR}/cmake/TWKey)
install(EXPORT TWKeyTargets NAMESPACE TWKey:: DESTINATION ${_cmakedir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TWKeyConfig.cmake.in
  ${CMAKE_BINARY_DIR}/TWKeyConfig.cmake INSTALL_DESTINATION ${_cmakedir} PATH_VARS TWKEY_INSTALL_PKGLIBDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/TWKeyConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/TWKeyConfig.cmake ${CMAKE_BINARY_DIR}/TWKeyConfigVersion.cmake
  DESTINATION ${_cmakedir})

# Documentation, the example host and the tracer's example package.
file(GLOB _docs ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${_docs} ${CMAKE_CURRENT_LIST_DIR}/deb/copyright
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/kdp/skftrace-example DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# Files Debian wants compressed (gzip -9n: no name, no time stamp) are
# compressed at build time, from `source` into share/`destination`.
function(twkey_install_gzipped source destination)
  get_filename_component(_name ${source} NAME)
  set(_gz ${CMAKE_BINARY_DIR}/gz/${_name}.gz)
  add_custom_command(OUTPUT ${_gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/gz
    COMMAND gzip -9nc ${source} > ${_gz}
    DEPENDS ${source} VERBATIM)
  string(MAKE_C_IDENTIFIER "gz_${_name}" _target)
  add_custom_target(${_target} ALL DEPENDS ${_gz})
  install(FILES ${_gz} DESTINATION ${destination})
endfunction()

# Man pages: twkey_install_manpage(<page>.<section>) for pages made by the
# build; the pages kept as sources, docs/man/*.[1-8], go in by themselves.
function(twkey_install_manpage page)
  string(REGEX MATCH "[1-8]$" _section ${page})
  twkey_install_gzipped(${page} ${CMAKE_INSTALL_MANDIR}/man${_section})
endfunction()
file(GLOB _pages ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
foreach(_page ${_pages})
  twkey_install_manpage(${_page})
endforeach()

# Bash completion: twkey_install_completion(<script> <command>); scripts kept
# as sources, docs/bash-completion/<command>, go in by themselves.
function(twkey_install_completion script command)
  install(FILES ${script} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${command})
endfunction()
file(GLOB _completions ${PROJECT_SOURCE_DIR}/docs/bash-completion/*)
foreach(_script ${_completions})
  get_filename_component(_command ${_script} NAME)
  twkey_install_completion(${_script} ${_command})
endforeach()

# The pages and completions twkey and softtoken write at build time from
# their command tables (host/CMakeLists.txt), in the build tree's share/.
foreach(_program twkey softtoken)
  twkey_install_manpage(${CMAKE_BINARY_DIR}/share/man/man1/${_program}.1)
  add_dependencies(gz_${_program}_1 ${_program}_pages)
  twkey_install_completion(${CMAKE_BINARY_DIR}/share/bash-completion/completions/${_program} ${_program})
endforeach()

twkey_install_gzipped(${CMAKE_CURRENT_LIST_DIR}/deb/changelog ${CMAKE_INSTALL_DOCDIR})
