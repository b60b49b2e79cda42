# A user's project on each road to the library. Run with STEP and
#   install  BUILD (a build tree), WORK: installs one component after the other into WORK/prefix
#   use      WORK, PROGRAM (the user's source), COMPILER, STANDARD_FLAGS: builds and runs the program against WORK/prefix, found
#            by CMake, by pkg-config and by plain options of the compiler
#   embed    the same and KEST_SOURCE, GENERATOR: the library is a static part of the user's project, which installs it only when
#            told to; what it installs is used as above, then uninstalled
cmake_minimum_required(VERSION 3.22)

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\n${output}")
  endif()
endfunction()

# Everything below the prefix, without the folders.
function(expect_files first_pattern)
  file(GLOB_RECURSE files RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
  set(strange ${files})
  foreach(pattern ${first_pattern} ${ARGN})
    set(found ${files})
    list(FILTER found INCLUDE REGEX "${pattern}")
    if(NOT found)
      message(FATAL_ERROR "nothing like ${pattern} is installed: ${files}")
    endif()
    list(FILTER strange EXCLUDE REGEX "${pattern}")
  endforeach()
  if(strange)
    message(FATAL_ERROR "installed, but not expected here: ${strange}")
  endif()
endfunction()

function(build_stranger road)
  set(build ${WORK}/${road})
  run(${CMAKE_COMMAND} -G "${GENERATOR}" -S ${CMAKE_CURRENT_LIST_DIR}/stranger -B ${build} -D ROAD=${road} -D PROGRAM=${PROGRAM}
      -D CMAKE_CXX_COMPILER=${COMPILER} -D CMAKE_PREFIX_PATH=${WORK}/prefix ${ARGN})
  run(${CMAKE_COMMAND} --build ${build} --target run)
endfunction()

function(use_installed library_folder)
  set(ENV{LD_LIBRARY_PATH} ${library_folder})  # pkg-config knows nothing of run paths
  build_stranger(package)
  build_stranger(pkg-config)
  run(${COMPILER} -std=c++20 ${PROGRAM} -I${WORK}/prefix/include -L${library_folder} -lkestsupport -pthread -o ${WORK}/plain)
  run(${WORK}/plain)
endfunction()

set(runtime "lib[^ ]*/libkestsupport\\.so\\.[0-9.]+$")
set(development "include/support/support\\.h$" "include/support/[a-z_]+\\.h$" "cmake/KestSupport/KestSupport[A-Za-z]+(-[a-z]+)?\\.cmake$"
    "pkgconfig/kestsupport\\.pc$")
set(tools "bin/kest(sc|-agent)$" "libexec/kest/kest-agent$" "libexec/kest/messages/kest-agent[a-zA-Z_]*\\.pro$"
    "systemd/system/kest-(agent|services)\\.service$" "etc/kest/agent\\.properties$" "man8/kest(sc|-agent)\\.8(\\.gz)?$"
    "completions/kest(sc|-agent)$" "site-functions/_kest(sc|-agent)$")

if(STEP STREQUAL "install")
  file(REMOVE_RECURSE ${WORK})
  set(expected "")
  foreach(component runtime development tools)
    list(APPEND expected ${${component}})
    if(component STREQUAL "development")
      list(APPEND expected "lib[^ ]*/libkestsupport\\.so$" "libkestsupport\\.so\\.[0-9.]+-gdb\\.py$")
    endif()
    run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix --component ${component})
    expect_files(${expected})
  endforeach()
  run(${WORK}/prefix/bin/kest-agent --inventory)
  # An installation keeps edited settings.
  file(WRITE ${WORK}/prefix/etc/kest/agent.properties "interval=9\n")
  run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix --component tools)
  file(READ ${WORK}/prefix/etc/kest/agent.properties settings)
  if(NOT settings STREQUAL "interval=9\n")
    message(FATAL_ERROR "The edited settings are lost: ${settings}")
  endif()
elseif(STEP STREQUAL "use")
  file(GLOB library ${WORK}/prefix/lib*/libkestsupport.so ${WORK}/prefix/lib/*/libkestsupport.so)
  get_filename_component(library_folder ${library} DIRECTORY)
  use_installed(${library_folder})
elseif(STEP STREQUAL "embed")
  file(REMOVE_RECURSE ${WORK})
  build_stranger(FetchContent -D KEST_SOURCE=${KEST_SOURCE} -D BUILD_SHARED_LIBS=OFF -D CMAKE_UNITY_BUILD=ON)
  run(${CMAKE_COMMAND} --install ${WORK}/FetchContent --prefix ${WORK}/prefix)
  if(EXISTS ${WORK}/prefix)
    message(FATAL_ERROR "A part of a user's project installs itself without being told to")
  endif()
  run(${CMAKE_COMMAND} -D KEST_INSTALL=ON ${WORK}/FetchContent)
  run(${CMAKE_COMMAND} --install ${WORK}/FetchContent --prefix ${WORK}/prefix)
  expect_files(${development} "lib[^ ]*/libkestsupport\\.a$")
  file(GLOB library ${WORK}/prefix/lib*/libkestsupport.a ${WORK}/prefix/lib/*/libkestsupport.a)
  get_filename_component(library_folder ${library} DIRECTORY)
  use_installed(${library_folder})
  run(${CMAKE_COMMAND} --build ${WORK}/FetchContent --target kest_uninstall)
  file(GLOB_RECURSE rest LIST_DIRECTORIES true ${WORK}/prefix/*)
  list(FILTER rest INCLUDE REGEX "[kK]est|support")
  list(FILTER rest EXCLUDE REGEX "^${WORK}/prefix$")
  if(rest)
    message(FATAL_ERROR "Not uninstalled: ${rest}")
  endif()
endif()
