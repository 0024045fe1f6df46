# What is built for another machine runs under the emulator that the toolchain file names.

# runnable(RESULT TARGET): a path that runs the target's program from anywhere. It is the program
# itself, or a script that hands it to the emulator.
function(runnable result target)
  if(NOT CMAKE_CROSSCOMPILING)
    set(${result} $<TARGET_FILE:${target}> PARENT_SCOPE)
    return()
  endif()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/emulated/$<TARGET_FILE_NAME:${target}>)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  file(GENERATE OUTPUT ${script}
    CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${target}> \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
  set(${result} ${script} PARENT_SCOPE)
endfunction()
