# The zip file for Windows, made, unpacked and used. Run with BUILD (the build tree), WORK, CPACK, GENERATOR, TOOLCHAIN,
# EMULATOR, which runs a program, and PROGRAM, the source of a user's program.
cmake_minimum_required(VERSION 3.22)

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}: ${result}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CPACK} --config ${BUILD}/CPackConfig.cmake -B ${WORK})
file(GLOB zip ${WORK}/*.zip)

# A folder with a blank and a letter that is not ASCII, where nothing else is.
set(folder "${WORK}/an unpacked zip ä")
file(ARCHIVE_EXTRACT INPUT ${zip} DESTINATION ${folder})
file(GLOB root "${folder}/kestsupport-*-windows-x86_64")
file(GLOB_RECURSE files RELATIVE "${root}" "${root}/*")
foreach(pattern "bin/libkestsupport-[0-9]+\\.dll" "lib/libkestsupport\\.dll\\.a" "include/support/support\\.h" "lib/pkgconfig/kestsupport\\.pc"
        "lib/cmake/KestSupport/KestSupportConfig\\.cmake" "bin/kestsc\\.exe" "bin/kest-agent\\.exe" "bin/messages/kest-agent_de\\.pro"
        "etc/kest/agent\\.properties" "bin/libstdc\\+\\+-6\\.dll" "share/doc/[^/]+/README\\.md" "share/doc/[^/]+/docs/porting\\.md")
  set(found ${files})
  list(FILTER found INCLUDE REGEX "^${pattern}$")
  list(LENGTH found count)
  if(NOT count EQUAL 1)
    message(SEND_ERROR "${pattern} is ${count} times in the zip file: ${files}")
  endif()
endforeach()

# Windows shows the version of each of our files: texts in UTF-16, here in hexadecimal.
file(GLOB own "${root}/bin/libkestsupport-*.dll" "${root}/bin/kest*.exe")
foreach(file IN LISTS own)
  file(READ "${file}" bytes HEX)
  if(NOT bytes MATCHES "460069006c006500560065007200730069006f006e00(0000)+[1-9][0-9]00([23][0-9e]00)+0000")
    message(SEND_ERROR "${file} has no version")
  endif()
endforeach()

# The project of a user finds the package there; its program, the tools and the agent run with the DLLs of the zip file only.
run(${CMAKE_COMMAND} -G "${GENERATOR}" -S ${CMAKE_CURRENT_LIST_DIR}/stranger -B ${WORK}/user -D ROAD=package -D PROGRAM=${PROGRAM}
    -D CMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} "-DCMAKE_PREFIX_PATH=${root}")
run(${CMAKE_COMMAND} --build ${WORK}/user --target user)
file(COPY ${WORK}/user/user.exe DESTINATION "${root}/bin")
unset(ENV{WINEPATH})
run(${EMULATOR} "${root}/bin/user.exe")
if(NOT output MATCHES "alive, beat 3")
  message(FATAL_ERROR "${output}")
endif()
run(${EMULATOR} "${root}/bin/kestsc.exe" list)
run(${EMULATOR} "${root}/bin/kest-agent.exe" --inventory)
if(NOT output MATCHES "seconds between samples")
  message(FATAL_ERROR "${output}")
endif()

# The static library of the same sources: pkg-config passes what a program needs, and no object has exports.
run(${CMAKE_COMMAND} -G "${GENERATOR}" -S ${CMAKE_CURRENT_LIST_DIR}/../.. -B ${WORK}/static -D BUILD_SHARED_LIBS=OFF -D KEST_BUILD_TESTS=OFF
    -D CMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
file(READ ${WORK}/static/kestsupport.pc package)
file(READ ${WORK}/static/compile_commands.json commands)
if(NOT package MATCHES "-DKEST_SUPPORT_STATIC\nLibs: [^\n]*-lkestsupport( -l[a-z0-9]+)* -ladvapi32" OR commands MATCHES "KEST_SUPPORT_BUILD")
  message(FATAL_ERROR "The static library cannot be used: ${package}")
endif()
