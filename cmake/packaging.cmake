# The Debian package (`make deb`): everything install.cmake installs, under
# the configured prefix, dependencies from dpkg-shlibdeps.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME twkey)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Installed as into the configured prefix (/usr for `make deb`), so that
# what is written at install time names the real place.
set(CPACK_SET_DESTDIR ON)
set(CPACK_PACKAGE_CONTACT "libTWKey maintainers <maintainers@users.noreply.c-seed-1aa78468.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "key library for e-signature hosts, with a software token")
set(CPACK_PACKAGE_DESCRIPTION "\
libTWKey gives an electronic-signature host one object interface to
cryptographic USB tokens of many makers. The host loads the library at run
time and drives keys by method name; each token family is described by a
key driver package that names the maker's SKF or native library.

This package holds the library with a software token that needs no
hardware (SM2, SM3, SM4, RSA), the twkey command-line host, the softtoken
administration program, the SKF call tracer, and the header, pkg-config
and CMake files for host developers.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# To check signatures outside the token, and to build hosts against it.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "openssl, pkg-config, qtbase5-dev")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
