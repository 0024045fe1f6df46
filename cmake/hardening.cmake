# What makes a mistake in memory end the process instead of being of use to somebody. For what is
# shipped; the tests are compiled without optimisation, which fortified calls need.
include(CheckCXXCompilerFlag)

add_library(zotconf_hardening INTERFACE)
set(offered)
# A flag that is only warned about is not offered.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
             -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "zotconf_has${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    list(APPEND offered ${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)
target_compile_options(zotconf_hardening INTERFACE
  ${offered} -Wformat -Wformat-security -Werror=format-security)
# The sanitizers watch the same calls, and see more of them when nobody else does.
if(NOT ZOTCONF_SANITIZE AND NOT ZOTCONF_SANITIZE_THREADS)
  target_compile_options(zotconf_hardening INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
endif()
target_link_options(zotconf_hardening INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
