# gk_rooms(TARGET): compiles the sources of each folder as one (GK_UNITY), which costs a third: what
# they include is read once. The static checks and the debug preset compile every file by itself.
# gk_batches(TARGET SIZE): the same for a target whose sources all lie in one folder, so many at a
# time.

# gk_leave_unoptimised(): the targets of this folder are not optimised, as tests are not: they would
# take longer to build than what they test.

option(GK_UNITY "Compile the sources of a folder as one" ON)

# What is in an anonymous namespace is in no header, though a file includes it.
set(GK_UNITY_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)

function(gk_rooms target)
  if(NOT GK_UNITY)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  foreach(source ${sources})
    get_filename_component(folder ${source} DIRECTORY)
    file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${folder})
    string(MAKE_C_IDENTIFIER "${folder}" room)
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${room})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  target_compile_options(${target} PRIVATE ${GK_UNITY_OPTIONS})
endfunction()

function(gk_batches target size)
  if(GK_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${size})
    target_compile_options(${target} PRIVATE ${GK_UNITY_OPTIONS})
  endif()
endfunction()

macro(gk_leave_unoptimised)
  if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    add_compile_options(-O0)
  endif()
endmacro()
