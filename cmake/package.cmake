# A Debian package of the installed files: `cpack -G DEB` (or the `package`
# target) in the build folder writes kolv_VERSION_ARCH.deb. Its runtime
# dependencies come from dpkg-shlibdeps over the programs, so a library a
# program links (libc, libstdc++, and any decompression library kolvprep
# uses) is named with the version it needs.
set(CPACK_PACKAGE_NAME kolv)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "the kolv developers")
set(CPACK_PACKAGE_CONTACT "the kolv developers <kolv@localhost>")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "converts ASCII text exports into VELDA data sets")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "kolv reads a text export under a command file and writes a VELDA data set\n"
  "(a 128-byte header, a variable block and rows of 2-, 4- or 8-byte\n"
  "elements). kolvdump shows a data set as text, CSV or a NumPy file, checks\n"
  "it and summarises each column; kolvprep writes the command file for an\n"
  "export. With manual pages and bash and zsh completions.")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Only the programs, their pages and the completions: the test programs are
# never installed.
include(CPack)
