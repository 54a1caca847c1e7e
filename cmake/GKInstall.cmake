# gk_install(TARGET COMPONENT name [DESTINATION folder] [EXPORT name]): installs a program to bin/ or
# a library to lib/, or to the folder. Debug information of programs and shared libraries goes into a
# file of its own, .debug/NAME.debug beside it, where debuggers look: what is loaded stays small.
#
# Components: program, platform, modules, fleet, ros2, and dev for those who write modules.

# Below the prefix.
set(GK_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/gkplatform)
set(GK_INSTALL_MODULESDIR ${CMAKE_INSTALL_LIBDIR}/gksensors/modules)
set(GK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/gkplatform)

option(GK_INSTALL_DEBUG_FILES "Installed files are stripped, with their debug information beside them" ON)

function(gk_install target)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "COMPONENT;DESTINATION;EXPORT" "")
  get_target_property(type ${target} TYPE)
  set(folder ${CMAKE_INSTALL_LIBDIR})
  if(type STREQUAL "EXECUTABLE")
    set(folder ${CMAKE_INSTALL_BINDIR})
  elseif(ARG_DESTINATION)
    set(folder ${ARG_DESTINATION})
  endif()
  set(export)
  if(ARG_EXPORT)
    set(export EXPORT ${ARG_EXPORT})
  endif()
  install(
    TARGETS ${target} ${export}
    RUNTIME DESTINATION ${folder} COMPONENT ${ARG_COMPONENT}
    LIBRARY DESTINATION ${folder} COMPONENT ${ARG_COMPONENT} NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${folder} COMPONENT ${ARG_COMPONENT})
  if(type STREQUAL "STATIC_LIBRARY")
    return()
  endif()
  # Where the installed ones find each other, as in the build folder.
  file(RELATIVE_PATH up /${folder} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${up}")
  if(NOT GK_INSTALL_DEBUG_FILES)
    return()
  endif()
  install(CODE "set(FOLDER \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")
set(NAME \"$<TARGET_FILE_NAME:${target}>\")
set(OBJCOPY \"${CMAKE_OBJCOPY}\")
include(\"${CMAKE_SOURCE_DIR}/cmake/SeparateDebugInfo.cmake\")" COMPONENT ${ARG_COMPONENT})
endfunction()
