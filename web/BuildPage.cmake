# Installs the packages that the page is made of, if they are not there, and bundles it.
# Usage: cmake -DNODE=... -DNPM=... -DWEB=... -DDIST=... -DFLEET_DIST=... -DSTAMP=... -P BuildPage.cmake
# Without a network to install from, everything else is still built: the program then says that it has
# no page, and the next build tries again.

# npm's own note of what it has installed last.
set(installed ${WEB}/node_modules/.package-lock.json)
if(NOT EXISTS ${installed} OR ${WEB}/package-lock.json IS_NEWER_THAN ${installed})
  execute_process(COMMAND ${NPM} ci --ignore-scripts --no-progress WORKING_DIRECTORY ${WEB}
                  OUTPUT_QUIET ERROR_VARIABLE problem RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(WARNING "The page is left out, npm cannot install its packages:\n${problem}")
    file(REMOVE_RECURSE ${DIST} ${FLEET_DIST})
    file(COPY ${WEB}/fallback/ DESTINATION ${DIST})
    file(COPY ${WEB}/fallback-fleet/ DESTINATION ${FLEET_DIST})
    return()
  endif()
  file(TOUCH ${installed})
endif()

execute_process(COMMAND ${NODE} ${WEB}/build.mjs ${DIST} ${FLEET_DIST} COMMAND_ERROR_IS_FATAL ANY)
file(TOUCH ${STAMP})
