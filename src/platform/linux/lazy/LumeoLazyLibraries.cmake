# lumeo_link_lazily(TARGET LIBRARY_NAME...)
# Links TARGET (an executable) so that the named shared libraries are loaded
# on the first call into them instead of at start: a command that draws no
# picture and touches no D-Bus service never pays for cairo, pango, GLib or
# libsecret. Each name is looked up like `-lNAME`. Only on x86-64 (the stubs
# are assembly); elsewhere, and with LUMEO_LAZY_LIBRARIES=OFF, the libraries
# are linked as usual.
option(LUMEO_LAZY_LIBRARIES "Load the command line's drawing and desktop libraries on first use" ON)
set(LUMEO_LAZY_DIR ${CMAKE_CURRENT_LIST_DIR})
if(LUMEO_LAZY_LIBRARIES AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  enable_language(ASM)
endif()
function(lumeo_link_lazily target)
  if(NOT LUMEO_LAZY_LIBRARIES OR NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    return()
  endif()
  set(files)
  foreach(name IN LISTS ARGN)
    find_library(lazy_${name} NAMES ${name} REQUIRED)
    list(APPEND files ${lazy_${name}})
  endforeach()
  set(out ${CMAKE_CURRENT_BINARY_DIR}/${target}_lazy)
  add_custom_command(
    OUTPUT ${out}.S ${out}_names.c
    COMMAND bash ${LUMEO_LAZY_DIR}/generate_stubs.sh ${out}.S ${out}_names.c ${files}
    DEPENDS ${LUMEO_LAZY_DIR}/generate_stubs.sh ${files}
    COMMENT "Generating the lazy-loading stubs of ${target}"
    VERBATIM)
    target_sources(${target} PRIVATE ${out}.S ${out}_names.c ${LUMEO_LAZY_DIR}/lazy_resolve.c)
  # The stubs define the functions, so the linker needs none of the
  # libraries: --as-needed leaves them out of the program's dependencies.
  target_link_options(${target} PRIVATE -Wl,--as-needed)
  target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
endfunction()
