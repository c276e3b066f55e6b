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
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/org.jorvane.Jorvane.metainfo.xml DESTINATION share/metainfo)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION share/doc/jorvane)
  # The man page and the changelog, compressed as Debian wants them.
  set(_compressed ${CMAKE_BINARY_DIR}/packaging)
  add_custom_command(OUTPUT ${_compressed}/jorvane.1.gz ${_compressed}/changelog.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${_compressed}
    COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/packaging/jorvane.1 > ${_compressed}/jorvane.1.gz
    COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/packaging/changelog > ${_compressed}/changelog.gz
    DEPENDS ${PROJECT_SOURCE_DIR}/packaging/jorvane.1 ${PROJECT_SOURCE_DIR}/packaging/changelog
    VERBATIM)
  add_custom_target(jorvane_documents ALL DEPENDS ${_compressed}/jorvane.1.gz ${_compressed}/changelog.gz)
  install(FILES ${_compressed}/jorvane.1.gz DESTINATION share/man/man1)
  install(FILES ${_compressed}/changelog.gz DESTINATION share/doc/jorvane)
endif()

# What the program runs at run time (src/platform/linux/ExternalPrograms.h, one
# {"what", "package", required} a line) becomes the package's Depends and
# Recommends, beside the libraries dpkg-shlibdeps finds.
file(STRINGS ${PROJECT_SOURCE_DIR}/src/platform/linux/ExternalPrograms.h _requirements
  REGEX "^ *\\{\"[^\"]+\", \"[^\"]+\", (true|false)\\},")
set(_depends)
set(_recommends)
foreach(_line IN LISTS _requirements)
  string(REGEX REPLACE "^ *\\{\"[^\"]+\", \"([^\"]+)\", (true|false)\\},.*" "\\1;\\2" _pair "${_line}")
  list(GET _pair 0 _package)
  list(GET _pair 1 _required)
  if(_required STREQUAL "true")
    list(APPEND _depends ${_package})
  else()
    list(APPEND _recommends ${_package})
  endif()
endforeach()
list(JOIN _depends ", " _depends)
list(JOIN _recommends ", " _recommends)

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
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${_depends}")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "${_recommends}")

include(CPack)

# Last of all the install rules: the subdirectories' run before this folder's own.
install(SCRIPT "${PROJECT_SOURCE_DIR}/cmake/WriteInstallManifest.cmake")
