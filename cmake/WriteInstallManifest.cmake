# Runs last in every install (cmake --install, and cpack for each package):
# writes <prefix>/share/jorvane/installed-files, the list of the files this
# install put there, so that the program acts only on its own files. The
# first line names the kind of install; cpack sets it per package
# (CPackPerGenerator.cmake), a plain `cmake --install` is a prefix install.
set(_kind "$ENV{JORVANE_INSTALL_KIND}")
if(NOT _kind MATCHES "^(release|prefix|package)$")
  set(_kind prefix)
endif()
set(_root "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/+$" "" _root "${_root}")
set(_manifest "${_root}/share/jorvane/installed-files")
set(_text "jorvane-installed-files 1 ${_kind}\n")
# The recorded paths carry DESTDIR in some installs (cpack's archives) and
# not in others (cpack's Debian package).
string(REGEX REPLACE "/+$" "" _prefix "${CMAKE_INSTALL_PREFIX}")
foreach(_file IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
  foreach(_base IN ITEMS "${_root}/" "${_prefix}/")
    string(FIND "${_file}" "${_base}" _at)
    if(_at EQUAL 0)
      string(LENGTH "${_base}" _baseLength)
      string(SUBSTRING "${_file}" ${_baseLength} -1 _relative)
      string(APPEND _text "${_relative}\n")
      break()
    endif()
  endforeach()
endforeach()
string(APPEND _text "share/jorvane/installed-files\n")
message(STATUS "Installing: ${_manifest} (${_kind})")
file(WRITE "${_manifest}" "${_text}")
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${_manifest}")
