# Fails when the disassembly of LIBRARY holds a fused multiply-add (or
# multiply-subtract) instruction of any form, or when it cannot be read.
execute_process(COMMAND ${OBJDUMP} -d --no-show-raw-insn ${LIBRARY}
                OUTPUT_VARIABLE listing RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${LIBRARY}")
endif()
string(LENGTH "${listing}" size)
if(size LESS 1000 OR NOT listing MATCHES "mulps|mulss")
  message(FATAL_ERROR "the disassembly of ${LIBRARY} holds no float multiply: nothing was checked")
endif()
string(REGEX MATCHALL "[\t ](v?f(n?m(add|sub)|maddsub|msubadd)[0-9a-z]*)[\t ]" found "${listing}")
if(found)
  list(REMOVE_DUPLICATES found)
  list(LENGTH found kinds)
  message(FATAL_ERROR "fused-multiply-add-found (${kinds} kinds) in ${LIBRARY}: ${found}")
endif()
message(STATUS "no fused multiply-add in ${LIBRARY}")
