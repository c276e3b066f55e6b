# Read by cpack for each package it makes.
if(CPACK_GENERATOR STREQUAL "TGZ")
  # The release archive: one folder jorvane-<version>/ with bin/ and share/,
  # which runs from wherever it is unpacked and may move itself to /opt.
  set(CPACK_PACKAGING_INSTALL_PREFIX "/jorvane-${CPACK_PACKAGE_VERSION}")
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
  set(CPACK_PACKAGE_FILE_NAME "jorvane-${CPACK_PACKAGE_VERSION}-linux-x86_64")
  set(ENV{JORVANE_INSTALL_KIND} release)
elseif(CPACK_GENERATOR STREQUAL "DEB")
  set(ENV{JORVANE_INSTALL_KIND} package)
endif()
