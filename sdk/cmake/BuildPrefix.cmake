# Installs what module authors need into the build folder itself.
# Usage: cmake -DBUILD=FOLDER -P BuildPrefix.cmake
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${BUILD} --component dev
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
