# Moves the debug information of FOLDER/NAME to FOLDER/.debug/NAME.debug, to which the file keeps a
# link. Part of the installation; OBJCOPY is that of the compiler. Without one the file stays whole.
if(NOT OBJCOPY)
  message(STATUS "No objcopy: ${NAME} keeps its debug information")
  return()
endif()

set(debug ${FOLDER}/.debug/${NAME}.debug)
message(STATUS "Installing: ${debug}")
file(MAKE_DIRECTORY ${FOLDER}/.debug)
foreach(arguments "--only-keep-debug;${FOLDER}/${NAME};${debug}" "--strip-unneeded;${FOLDER}/${NAME}"
                  "--add-gnu-debuglink=${debug};${FOLDER}/${NAME}")
  execute_process(COMMAND ${OBJCOPY} ${arguments} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(CHMOD ${debug} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
