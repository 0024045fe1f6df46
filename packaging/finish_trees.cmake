# CPack runs this on the installed trees before it packages them. It strips what only a debugger or
# linker diagnostics need, and compresses the manual pages.
set(top ${CPACK_TEMPORARY_DIRECTORY})

file(GLOB_RECURSE shared LIST_DIRECTORIES false ${top}/*/usr/lib/*.so.*)
file(GLOB_RECURSE static LIST_DIRECTORIES false ${top}/*/usr/lib/*.a)
file(GLOB programs LIST_DIRECTORIES false ${top}/*/usr/bin/*)
file(GLOB_RECURSE pages LIST_DIRECTORIES false ${top}/*/usr/share/man/*.[1-9])
if(NOT shared OR NOT static OR NOT programs)
  message(FATAL_ERROR "the library, its archive or the program is missing below ${top}")
endif()

set(notes --remove-section=.comment --remove-section=.note)
execute_process(COMMAND strip ${notes} --strip-unneeded ${shared} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND strip ${notes} ${programs} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND strip --strip-debug --enable-deterministic-archives ${notes} ${static}
  COMMAND_ERROR_IS_FATAL ANY)
if(pages)
  execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
