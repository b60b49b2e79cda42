# What is installed, in three components:
#   runtime      the shared library, for the programs that use it; on Windows also the DLLs of the compiler's runtime
#   development  headers, the CMake package, the pkg-config file, the static library, gdb's printers
#   tools        kestsc and kest-agent with their units, manual pages and completions
include_guard(GLOBAL)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/KestSupport)

# --- The library

install(TARGETS kestsupport EXPORT KestSupportTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  RUNTIME COMPONENT runtime
  ARCHIVE COMPONENT development)
if(WIN32)
  install(FILES ${KEST_RUNTIME_LIBRARIES} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/support DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(EXPORT KestSupportTargets NAMESPACE KestSupport:: DESTINATION ${cmake_folder} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KestSupportConfig.cmake.in KestSupportConfig.cmake
  INSTALL_DESTINATION ${cmake_folder})
write_basic_package_version_file(KestSupportConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KestSupportConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/KestSupportConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT development)

# pkg-config: the package may be moved, so its place is found from the file's; below /usr it stays.
function(kest_set_pc_folder variable folder)
  if(NOT IS_ABSOLUTE ${folder})
    string(PREPEND folder "\${prefix}/")
  endif()
  set(${variable} ${folder} PARENT_SCOPE)
endfunction()
kest_set_pc_folder(pc_libdir ${CMAKE_INSTALL_LIBDIR})
kest_set_pc_folder(pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
set(pc_prefix ${CMAKE_INSTALL_PREFIX})
if(NOT pc_prefix STREQUAL "/usr")
  file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_prefix}")
endif()
# Where the static library is the only one, no program links without what it needs.
get_target_property(library_type kestsupport TYPE)
set(pc_libs "")
set(pc_definitions "")
if(library_type STREQUAL STATIC_LIBRARY)
  get_target_property(system_libraries kestsupport LINK_LIBRARIES)
  list(REMOVE_ITEM system_libraries Threads::Threads)
  list(TRANSFORM system_libraries PREPEND -l)
  set(pc_libs ${CMAKE_THREAD_LIBS_INIT} ${system_libraries})
  list(TRANSFORM pc_libs PREPEND " ")
  list(JOIN pc_libs "" pc_libs)
  if(WIN32)
    set(pc_definitions " -DKEST_SUPPORT_STATIC")
  endif()
endif()
configure_file(${packaging}/kestsupport.pc.in kestsupport.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kestsupport.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(library_type STREQUAL SHARED_LIBRARY AND UNIX)
  # gdb loads a library's printers from a file of the library's full name below its own folder.
  install(FILES ${packaging}/gdb/kestsupport_printers.py RENAME $<TARGET_FILE_NAME:kestsupport>-gdb.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR} COMPONENT development)
endif()

# --- The programs

if(TARGET kestsc)
  install(TARGETS kestsc RUNTIME COMPONENT tools)
endif()
if(TARGET kest-agent AND UNIX)
  # The agent reads its messages from the folder next to it, so it has a folder of its own and a link among the programs.
  set(agent_folder ${CMAKE_INSTALL_LIBEXECDIR}/kest)
  file(RELATIVE_PATH from_agent_to_library ${CMAKE_INSTALL_FULL_LIBEXECDIR}/kest ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(kest-agent PROPERTIES INSTALL_RPATH "$ORIGIN/${from_agent_to_library}")
  install(TARGETS kest-agent RUNTIME DESTINATION ${agent_folder} COMPONENT tools)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/agent/messages DESTINATION ${agent_folder} COMPONENT tools
    FILES_MATCHING PATTERN "*.pro")
  file(RELATIVE_PATH from_bin_to_agent ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBEXECDIR}/kest/kest-agent)
  file(CREATE_LINK ${from_bin_to_agent} ${CMAKE_CURRENT_BINARY_DIR}/kest-agent SYMBOLIC)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kest-agent DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

if(TARGET kest-agent AND WIN32)
  install(TARGETS kest-agent RUNTIME COMPONENT tools)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/agent/messages DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools
    FILES_MATCHING PATTERN "*.pro")
  install(FILES ${PROJECT_SOURCE_DIR}/examples/agent/settings.properties DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/kest
    RENAME agent.properties COMPONENT tools)
endif()

# What belongs to the programs. A system's own installation, below /usr, has its settings in /etc and follows Debian.
set(settings_folder ${CMAKE_INSTALL_SYSCONFDIR}/kest)
set(zsh_folder ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(settings_folder ${CMAKE_INSTALL_FULL_SYSCONFDIR}/kest)
  set(zsh_folder ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()

function(kest_install_extras program)
  install(FILES ${packaging}/completions/${program}.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${program} COMPONENT tools)
  install(FILES ${packaging}/completions/_${program} DESTINATION ${zsh_folder} COMPONENT tools)
  configure_file(${packaging}/man/${program}.8 ${program}.8 COPYONLY)
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${program}.8)
  if(KEST_GZIP)
    execute_process(COMMAND ${KEST_GZIP} -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND page .gz)
  endif()
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT tools)
endfunction()

# A unit names the places of this installation.
function(kest_install_unit name)
  set(unit ${PROJECT_SOURCE_DIR}/examples/systemd/${name}.service)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${unit})
  file(READ ${unit} text)
  string(REPLACE "/usr/bin/" "${CMAKE_INSTALL_FULL_BINDIR}/" text "${text}")
  string(REPLACE "/etc/" "${CMAKE_INSTALL_FULL_SYSCONFDIR}/" text "${text}")
  file(CONFIGURE OUTPUT ${name}.service CONTENT "${text}" @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.service DESTINATION lib/systemd/system COMPONENT tools)
endfunction()

find_program(KEST_GZIP gzip)
if(TARGET kestsc AND UNIX)
  kest_install_extras(kestsc)
  kest_install_unit(kest-services)
endif()
if(TARGET kest-agent AND UNIX)
  kest_install_extras(kest-agent)
  kest_install_unit(kest-agent)
  # The settings that an administrator has edited stay.
  set(settings ${PROJECT_SOURCE_DIR}/examples/agent/settings.properties)
  install(CODE "
    set(folder \"${settings_folder}\")
    cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    if(EXISTS \"\$ENV{DESTDIR}\${folder}/agent.properties\")
      list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${folder}/agent.properties\")
    else()
      file(INSTALL DESTINATION \"\${folder}\" TYPE FILE FILES \"${settings}\" RENAME agent.properties)
    endif()" COMPONENT tools)
endif()

# --- Removing it again

add_custom_target(kest_uninstall COMMAND ${CMAKE_COMMAND} -D BUILD=${CMAKE_BINARY_DIR}
  -D SETTINGS=${PROJECT_SOURCE_DIR}/examples/agent/settings.properties -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake)
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall DEPENDS kest_uninstall)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    include(KestPackage)
  elseif(WIN32)
    include(KestZip)
  endif()
endif()
