# rubruf_python: the Python to embed, as headers and a shared libpython.
#
# CMake's own finder knows only the versions of its day and may answer with a static archive, which would break every
# extension module that a script imports. So the pairs of headers and library are looked for here: below
# RUBRUF_PYTHON_ROOT where that is set, else below the system's prefixes; 3.8, the version of the contract, comes first,
# then the newest. RUBRUF_PYTHON_DEBUG takes the debug build of each, which stands beside it under names with a "d".
# Builds without the global interpreter lock are passed over, because nothing in the plug-in is made for them.

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
  # Debian's headers of the debug build are links, but for one. g++ would follow them, and miss that one.
  target_compile_options(rubruf_python INTERFACE -fno-canonical-system-headers)
endif()
