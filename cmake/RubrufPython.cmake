# rubruf_python: the Python to embed, as headers and a shared libpython.
#
# CMake's own finder knows only the versions that were current when it was written. It may also return a static archive,
# which would break every extension module that a script imports. So this file looks for pairs of headers and library:
# below RUBRUF_PYTHON_ROOT if that is set, else below the system's prefixes. Python 3.8 comes first, because it is the
# oldest version that is supported, then the newest one. RUBRUF_PYTHON_DEBUG selects the debug build of each, which is
# installed beside it under names with a "d". Builds without the global interpreter lock are skipped, because the plug-in
# relies on that lock.

set(prefixes ${RUBRUF_PYTHON_ROOT})
if(NOT prefixes)
  set(prefixes ${CMAKE_PREFIX_PATH} /usr/local /usr)
endif()

set(abi "")
if(RUBRUF_PYTHON_DEBUG)
  set(abi "d")
endif()

set(found "")
set(without_lock "")
foreach(prefix IN LISTS prefixes)
  file(GLOB headers ${prefix}/include/python3.*/patchlevel.h)
  foreach(header IN LISTS headers)
    if(NOT header MATCHES "/python(3\\.[0-9]+)(t?)${abi}/patchlevel\\.h$" OR CMAKE_MATCH_1 VERSION_LESS 3.8)
      continue()
    endif()
    set(version ${CMAKE_MATCH_1})
    set(named_without_lock ${CMAKE_MATCH_2})
    get_filename_component(include_directory ${header} DIRECTORY)
    file(STRINGS ${include_directory}/pyconfig.h lock_disabled REGEX "^#define Py_GIL_DISABLED 1")
    if(NOT "${named_without_lock}" STREQUAL "" OR lock_disabled)
      list(APPEND without_lock ${include_directory})
      continue()
    endif()
    foreach(directory lib lib/${CMAKE_LIBRARY_ARCHITECTURE} lib64)
      set(library ${prefix}/${directory}/libpython${version}${abi}.so)
      if(EXISTS ${library})
        list(APPEND found "${version}|${include_directory}|${library}")
        break()
      endif()
    endforeach()
  endforeach()
endforeach()

list(JOIN prefixes ", " places)
if(NOT found AND without_lock)
  message(FATAL_ERROR
    "The Python below ${places} is built without the global interpreter lock (Py_GIL_DISABLED), and the plug-in walks "
    "the objects of scripts under that lock alone. Name the prefix of a build with it: -DRUBRUF_PYTHON_ROOT=PREFIX.")
elseif(NOT found)
  message(FATAL_ERROR
    "No Python 3.8 or newer with headers and a shared libpython below ${places}. "
    "Install python3-dev, or name a prefix with -DRUBRUF_PYTHON_ROOT=PREFIX.")
endif()

list(SORT found COMPARE NATURAL ORDER DESCENDING)
set(contract ${found})
list(FILTER contract INCLUDE REGEX "^3\\.8\\|")
if(contract)
  set(found ${contract})
endif()
list(GET found 0 chosen)
string(REPLACE "|" ";" chosen ${chosen})
list(GET chosen 0 version)
list(GET chosen 1 include_directory)
list(GET chosen 2 library)

message(STATUS "Embedding Python ${version}: ${library}")
add_library(rubruf_python INTERFACE)
target_include_directories(rubruf_python SYSTEM INTERFACE ${include_directory})
target_link_libraries(rubruf_python INTERFACE ${library})
if(RUBRUF_PYTHON_DEBUG AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # In Debian's debug build all headers but one are links. g++ would follow the links, and not find that one header.
  target_compile_options(rubruf_python INTERFACE -fno-canonical-system-headers)
endif()
