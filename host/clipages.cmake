# Build step: a program's man page and bash completion, as the program
# writes them (--help-man, --completion). cmake -DPROGRAM= -DMAN= -DCOMPLETION= -P
foreach(kind MAN COMPLETION)
  get_filename_component(dir ${${kind}} DIRECTORY)
  file(MAKE_DIRECTORY ${dir})
endforeach()
execute_process(COMMAND ${PROGRAM} --help-man OUTPUT_FILE ${MAN} RESULT_VARIABLE man_rc)
execute_process(COMMAND ${PROGRAM} --completion OUTPUT_FILE ${COMPLETION} RESULT_VARIABLE completion_rc)
if(NOT man_rc EQUAL 0 OR NOT completion_rc EQUAL 0)
  file(REMOVE ${MAN} ${COMPLETION})
  message(FATAL_ERROR "${PROGRAM} did not write its man page or completion")
endif()
