# How the test programs run under the sanitizers, where a process takes long to start and everything
# is ten times slower: the tests of a program in a few processes instead of one each. Left out is
# what sees nothing that other tests do not reach there as well: hours of the robot's time, all
# recordings and scenarios once more, many seeds of the physics.

set(GK_LONG_TESTS Soak.* */Soak.* Record.EveryScenario* OurScenarios.* */PosturesOfManySeeds.* Tour.*
    # Its disk is full before the start has ended.
    Files.AFullDisk*)
if(GK_SANITIZE STREQUAL "thread")
  # Files that may not grow are more than the sanitizer can live with: it has some of its own. What
  # runs on one thread is done without it.
  list(APPEND GK_LONG_TESTS Files.ARecordingThatMayNotGrow* FaultMatrix.* Record.* GkTerminal.*
       */OnTerminals.* GkDoctor.* */GkSlip.* GkNames.*)
endif()
list(JOIN GK_LONG_TESTS : GK_LONG_TESTS)

# How many processes share the tests of a program.
set(GK_SHARDS_runtime 4)
set(GK_SHARDS_gateway 2)
set(GK_SHARDS_app 8)

# gk_add_sanitized_tests(FOLDER): the tests of FOLDER's program as FOLDER.1, FOLDER.2 and so on.
function(gk_add_sanitized_tests folder)
  set(shards 1)
  if(GK_SHARDS_${folder})
    set(shards ${GK_SHARDS_${folder}})
  endif()
  foreach(shard RANGE 1 ${shards})
    math(EXPR index "${shard} - 1")
    add_test(NAME ${folder}.${shard} COMMAND ${folder}_test --gtest_brief=1)
    set_tests_properties(
      ${folder}.${shard}
      PROPERTIES
        ENVIRONMENT
        "GTEST_TOTAL_SHARDS=${shards};GTEST_SHARD_INDEX=${index};GTEST_FILTER=-${GK_LONG_TESTS}")
  endforeach()
endfunction()
