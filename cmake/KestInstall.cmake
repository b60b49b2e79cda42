# What is installed, in three components:
#   runtime      the shared library, for the programs that use it
#   development  headers, the CMake package, the pkg-config file, the static library
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
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/support DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(EXPORT KestSupportTargets NAMESPACE KestSupport:: DESTINATION ${cmake_folder} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KestSupportConfig.cmake.in KestSupportConfig.cmake
  INSTALL_DESTINATION ${cmake_folder})
write_basic_package_version_file(KestSupportConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KestSupportConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/KestSupportConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT development)

# pkg-config: a folder below the prefix is written relative to it, so that the package can be moved.
function(kest_set_pc_folder variable folder)
  if(NOT IS_ABSOLUTE ${folder})
    string(PREPEND folder "\${prefix}/")
  endif()
  set(${variable} ${folder} PARENT_SCOPE)
endfunction()
kest_set_pc_folder(pc_libdir ${CMAKE_INSTALL_LIBDIR})
kest_set_pc_folder(pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
file(RELATIVE_PATH from_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" from_pc_to_prefix "${from_pc_to_prefix}")
# Where the static library is the only one, no program links without what it needs.
get_target_property(library_type kestsupport TYPE)
set(pc_libs "")
if(library_type STREQUAL STATIC_LIBRARY AND CMAKE_THREAD_LIBS_INIT)
  set(pc_libs " ${CMAKE_THREAD_LIBS_INIT}")
endif()
configure_file(${packaging}/kestsupport.pc.in kestsupport.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kestsupport.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# --- The programs

if(TARGET kestsc)
  install(TARGETS kestsc RUNTIME COMPONENT tools)
endif()
if(TARGET kest-agent)
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

# --- Removing it again

add_custom_target(kest_uninstall
  COMMAND ${CMAKE_COMMAND} -D BUILD=${CMAKE_BINARY_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake)
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall DEPENDS kest_uninstall)
endif()
