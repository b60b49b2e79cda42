# The zip file for Windows: `cpack` in the build tree makes one with all components. It may be unpacked into any folder.
include_guard(GLOBAL)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME kestsupport)
set(CPACK_PACKAGE_VENDOR "Kest Support Library")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_FILE_NAME kestsupport-${PROJECT_VERSION}-windows-x86_64)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_KEST_STRIP ${CMAKE_STRIP})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/zip_files.cmake)

# The links between the documents stay valid.
set(documents ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${documents} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${documents} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/examples/agent/README.md DESTINATION ${documents}/examples/agent COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/tools/kestsc/README.md DESTINATION ${documents}/tools/kestsc COMPONENT tools)

include(CPack)
