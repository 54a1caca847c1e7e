# gk_install(TARGET): installs a program to bin/ or a library to lib/. Debug information goes into a
# file of its own, .debug/NAME.debug beside it, where debuggers look: what is loaded stays small.

# Where the installed ones find each other, as in the build folder.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN")

function(gk_install target)
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
                            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set(folder ${CMAKE_INSTALL_LIBDIR})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(folder ${CMAKE_INSTALL_BINDIR})
  endif()
  install(CODE "set(FOLDER \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")
set(NAME \"$<TARGET_FILE_NAME:${target}>\")
set(OBJCOPY \"${CMAKE_OBJCOPY}\")
include(\"${CMAKE_SOURCE_DIR}/cmake/SeparateDebugInfo.cmake\")")
endfunction()
