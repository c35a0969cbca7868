# Read by cpack, which would leave out all dependencies where it cannot look for them.

find_program(shlibdeps dpkg-shlibdeps)
if(NOT shlibdeps)
  message(FATAL_ERROR "A package needs dpkg-shlibdeps to know its dependencies: scripts/setup package installs it")
endif()
