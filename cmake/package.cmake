# ./dev package: a Debian package of what `cmake --install` installs.
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
set(CPACK_PACKAGE_CONTACT "ostrel-kernprep maintainers <maintainers@ostrel.example>")
# A package's summary is no sentence, and its description says more than the summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "gets a product's kernel modules onto the running kernel")
set(CPACK_PACKAGE_DESCRIPTION
"A product's launcher starts this small graphical tool when the product's kernel
modules may be missing or may not fit the running kernel. It installs pre-built
modules where a set fits, and builds the others from source.")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "hicolor-icon-theme, kmod, librsvg2-common, make")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gcc, pkexec | sudo")
include(CPack)
