# Runs PROGRAM, under EMULATOR where there is one, and fails unless it succeeds and its standard output is
# what stands in EXPECTED. The output goes to the file ACTUAL.

execute_process(COMMAND ${EMULATOR} ${PROGRAM} OUTPUT_FILE ${ACTUAL} RESULT_VARIABLE result)
if(NOT result STREQUAL "0")
    message(SEND_ERROR "${PROGRAM} ended with: ${result}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${EXPECTED} ${ACTUAL} RESULT_VARIABLE difference)
if(NOT difference STREQUAL "0")
    execute_process(COMMAND diff -u ${EXPECTED} ${ACTUAL})  # for people only: without the tool it still fails
    message(SEND_ERROR "The output is not what is expected in ${EXPECTED}")
endif()
