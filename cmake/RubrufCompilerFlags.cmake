# rubruf_flags: the compiler flags that all of our own targets share.

add_library(rubruf_flags INTERFACE)
target_compile_options(rubruf_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(RUBRUF_WARNINGS_AS_ERRORS)
  target_compile_options(rubruf_flags INTERFACE -Werror)
endif()
if(RUBRUF_SANITIZE)
  target_compile_options(rubruf_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(rubruf_flags INTERFACE -fsanitize=address,undefined)
endif()
