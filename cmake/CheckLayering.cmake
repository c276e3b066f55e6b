# Fails when a source of the core includes a platform toolkit's header. The
# shadow headers in src/forbidden_headers stop the compiler too; this check also
# catches includes inside code that is not compiled in every configuration.
set(_dirs accessibility addressbar app filemanager firstlaunch keys places settings shortcut updater util)
set(_bad "")
foreach(dir IN LISTS _dirs)
  file(GLOB_RECURSE _files ${SOURCE_DIR}/${dir}/*.h ${SOURCE_DIR}/${dir}/*.cpp)
  foreach(f IN LISTS _files)
    file(STRINGS ${f} _lines REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"](Q[A-Za-z]*|Qt[A-Za-z]*/.*|xcb/.*|X11/.*|xkbcommon/.*|glib.*|gio/.*|atspi/.*|dbus/.*|platform/.*|ui/.*)[>\"]")
    foreach(l IN LISTS _lines)
      string(APPEND _bad "${f}: ${l}\n")
    endforeach()
  endforeach()
endforeach()
if(_bad)
  message(FATAL_ERROR "The core includes platform headers:\n${_bad}")
endif()
