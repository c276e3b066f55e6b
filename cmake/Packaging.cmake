# Installation into a desktop, the Debian package and the release archive.
#
#   cmake --build <build> && (cd <build> && cpack -G DEB)
#
# gives jorvane_<version>_<arch>.deb, installing under /usr: bin/jorvane,
# share/jorvane/* (found by the program beside its executable, ../share/jorvane),
# the menu entry and the icon. Its Depends are worked out by dpkg-shlibdeps
# from the libraries the program links (dpkg-dev).
#
#   (cd <build> && cpack -G TGZ)
#
# gives jorvane-<version>-linux-x86_64.tar.gz, unpacking to jorvane-<version>/.
# Every install carries share/jorvane/installed-files, written last
# (WriteInstallManifest.cmake), which tells the program which files are its own.

if(JORVANE_BUILD_APP)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/jorvane.desktop DESTINATION share/applications)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/jorvane.svg DESTINATION share/icons/hicolor/scalable/apps)
endif()

set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/cmake/CPackPerGenerator.cmake")
set(CPACK_PACKAGE_NAME "jorvane")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_VENDOR "Jorvane")
set(CPACK_PACKAGE_CONTACT "Jorvane maintainers <maintainers@users.noreply.c-seed-aa8e85a7.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "editable address bar for Thunar windows")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
# The package carries the program, not its debugging information.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "utils")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
# The summary above is the description's first line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Jorvane runs in the background beside Thunar, the Xfce file manager. Click the
title of a Thunar window, or press Ctrl+G, and a bar over the title holds the
folder's path: edit it, with completion of file and folder names, and press
Return to go there, select files or connect to a server.

It needs an X11 session.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "thunar")

include(CPack)

# Last of all the install rules: the subdirectories' run before this folder's own.
install(SCRIPT "${PROJECT_SOURCE_DIR}/cmake/WriteInstallManifest.cmake")
