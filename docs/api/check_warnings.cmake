# Runs Doxygen with the reference's configuration into a scratch folder and
# fails when it reports any warning (an undocumented public name, a comment
# Doxygen cannot read). -DDOXYGEN=... -DDOXYFILE=... -DOUTPUT=...
file(REMOVE_RECURSE ${OUTPUT})
file(MAKE_DIRECTORY ${OUTPUT})
file(READ ${DOXYFILE} config)
string(APPEND config "\nOUTPUT_DIRECTORY = ${OUTPUT}\nWARN_LOGFILE = ${OUTPUT}/warnings.log\n")
file(WRITE ${OUTPUT}/Doxyfile "${config}")
execute_process(COMMAND ${DOXYGEN} ${OUTPUT}/Doxyfile RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "doxygen failed (${result})")
endif()
file(STRINGS ${OUTPUT}/warnings.log warnings REGEX "warning:")
list(LENGTH warnings count)
message(STATUS "doxygen warnings: ${count}")
if(count GREATER 0)
  file(READ ${OUTPUT}/warnings.log log)
  message(FATAL_ERROR "${log}")
endif()
