# JORVANE_SANITIZE applies to everything built in this tree, so that the
# standard library's inline code and our code agree on instrumentation.
if(JORVANE_SANITIZE)
  set(_san "-fsanitize=${JORVANE_SANITIZE}" -fno-omit-frame-pointer -g)
  if(JORVANE_SANITIZE MATCHES "undefined")
    list(APPEND _san -fno-sanitize-recover=undefined)
  endif()
  add_compile_options(${_san})
  add_link_options(${_san})
endif()
