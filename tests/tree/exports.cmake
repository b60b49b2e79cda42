# The shared library gives a program what is marked for it and nothing else: the names of KestSupport and those of the locks'
# implementations, with their virtual tables and type information. Data among them is listed as public, so that library and
# program use the same copy. Run with NM, LIBRARY and LIST, the file of the public data.
cmake_minimum_required(VERSION 3.22)

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
file(READ ${LIST} list)
string(REGEX MATCHALL " [A-Za-z] [^\n]+" symbols "${symbols}")
foreach(symbol IN LISTS symbols)
  string(SUBSTRING "${symbol}" 3 -1 name)
  if(name MATCHES "^_Z[^0-9]*11KestSupport(8internal|8platform|12_GLOBAL__N_1)")
    message(SEND_ERROR "exported, but internal: ${name}")
  elseif(NOT name MATCHES "^_Z(T[VTIS]|T[hv][0-9n_]+)?(NK?)?(11KestSupport|8LockBase|18LockImplementation|20RwLockImplementation)")
    message(SEND_ERROR "exported, but not of the library's interface: ${name}")
  elseif(symbol MATCHES "^ [BDR] " AND NOT list MATCHES "${name};")
    message(SEND_ERROR "exported data that is not listed: ${name}")
  endif()
endforeach()
list(LENGTH symbols count)
if(count LESS 50)
  message(SEND_ERROR "only ${count} symbols are exported")
endif()
