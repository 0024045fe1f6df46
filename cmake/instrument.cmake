# What the sanitizer and coverage builds add to every target.
add_library(zotconf_instrument INTERFACE)
# Without tail calls every function stands in a leak's stack, where the suppression looks for it.
if(ZOTCONF_SANITIZE)
  set(flags -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
            -fno-omit-frame-pointer -fno-optimize-sibling-calls)
  target_compile_options(zotconf_instrument INTERFACE ${flags})
  target_link_options(zotconf_instrument INTERFACE ${flags})
endif()
if(ZOTCONF_SANITIZE_THREADS)
  target_compile_options(zotconf_instrument INTERFACE -fsanitize=thread)
  target_link_options(zotconf_instrument INTERFACE -fsanitize=thread)
endif()
if(ZOTCONF_COVERAGE)
  target_compile_options(zotconf_instrument INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(zotconf_instrument INTERFACE --coverage)
endif()
