# run(COMMAND...): what it printed is `output`; a failure ends the script with all of it.
macro(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE errors OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGN}\nended with ${status}\n${output}\n${errors}")
  endif()
endmacro()
