# The shared library exports only marked names: those of KestSupport and of the locks' implementations, with their virtual
# tables and type information. The list of public data has each exported variable, so that library and program use the same
# copy. Run with NM, LIBRARY and LIST, the file of the public data.
cmake_minimum_required(VERSION 3.22)

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
file(READ ${LIST} list)
string(REGEX MATCHALL " [A-Za-z] [^\n]+" symbols "${symbols}")
foreach(symbol IN LISTS symbols)
  string(SUBSTRING "${symbol}" 3 -1 name)
  if(name MATCHES "^_Z[^0-9]*11KestSupport(8internal|8platform|12_GLOBAL__N_1)")
    message(SEND_ERROR "the library exports an internal name: ${name}")
  elseif(NOT name MATCHES "^_Z(T[VTIS]|T[hv][0-9n_]+)?(NK?)?(11KestSupport|8LockBase|18LockImplementation|20RwLockImplementation)")
    message(SEND_ERROR "the library exports a name outside its interface: ${name}")
  elseif(symbol MATCHES "^ [BDR] " AND NOT list MATCHES "${name};")
    message(SEND_ERROR "${LIST} lacks the exported variable ${name}")
  endif()
endforeach()
list(LENGTH symbols count)
if(count LESS 50)
  message(SEND_ERROR "the library exports only ${count} symbols")
endif()
