# Functions for those who write modules.

# gk_add_module_library(TARGET SOURCE...): a module library, libTARGET.so. It exports its two entries
# and nothing else, and tells hosts by its note what it was built for.
#
# What it includes and links is said with target_include_directories(TARGET ...) and
# target_link_libraries(TARGET ...), as of any target. Its sources are compiled in TARGET_objects,
# which tests link to reach the classes that the library hides.
function(gk_add_module_library target)
  set(objects ${target}_objects)
  add_library(${objects} OBJECT ${ARGN})
  set_target_properties(
    ${objects} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                          VISIBILITY_INLINES_HIDDEN ON)
  # What is said of the library holds for its objects.
  foreach(property INCLUDE_DIRECTORIES COMPILE_DEFINITIONS COMPILE_OPTIONS)
    string(TOLOWER ${property} kind)
    cmake_language(CALL target_${kind} ${objects} PUBLIC
                   "$<TARGET_PROPERTY:${target},${property}>")
  endforeach()
  target_link_libraries(${objects} PUBLIC gkplatform::extractor gkplatform::gkplatform)

  add_library(${target} MODULE $<TARGET_OBJECTS:${objects}>
                               ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/GKNote.cpp)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  set(map ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/GKModuleLibrary.map)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  target_link_libraries(${target} PRIVATE gkplatform::extractor gkplatform::gkplatform)
endfunction()

# gk_add_scenario_tests(TARGET FOLDER [WITH LIBRARY...]): a CTest test for each scenario in FOLDER
# that expects something, and for each recording with expectations or expected output beside it. `gk
# test` runs it with the module library TARGET; libraries WITH which it is loaded come before it, as
# `--library` names them: gksensors is ours.
function(gk_add_scenario_tests target folder)
  cmake_parse_arguments(PARSE_ARGV 2 ARG "" "" "WITH")
  get_filename_component(folder ${folder} ABSOLUTE)
  find_program(GK_PROGRAM gk HINTS ${GK_PROGRAM_DIR})
  if(NOT GK_PROGRAM)
    message(FATAL_ERROR "gk_add_scenario_tests: there is no program gk; GK_PROGRAM names it")
  endif()
  set(libraries)
  foreach(library ${ARG_WITH})
    list(APPEND libraries --library ${library})
  endforeach()
  file(GLOB inputs CONFIGURE_DEPENDS ${folder}/*.jsonl ${folder}/*.csv ${folder}/*.csv.gz
       ${folder}/*.mcap)
  list(FILTER inputs EXCLUDE REGEX "\\.(expect|expected)\\.jsonl$")
  foreach(input ${inputs})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${input})
    string(REGEX REPLACE "\\.(jsonl|csv|csv\\.gz|mcap)$" "" stem ${input})
    set(expectations)
    if(input MATCHES "\\.jsonl$")
      file(STRINGS ${input} expectations REGEX "\"(expect|never)\"")
    endif()
    if(NOT expectations AND NOT EXISTS ${stem}.expect.jsonl AND NOT EXISTS ${stem}.expected.jsonl)
      continue()
    endif()
    get_filename_component(name ${stem} NAME)
    add_test(NAME ${target}.${name} COMMAND ${GK_PROGRAM} test ${libraries} --library
                                            $<TARGET_FILE:${target}> ${input})
  endforeach()
endfunction()
