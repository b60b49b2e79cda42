# Configures the library and its programs with Clang in the manner of MSVC's compiler, and fails if a target has an option that
# only GCC and Clang know. Nothing is built, because the libraries of MSVC are not free. Run with CLANG_CL, LLVM_LIB, ROOT and
# WORK.
cmake_minimum_required(VERSION 3.22)

file(REMOVE_RECURSE ${WORK})
file(WRITE ${WORK}/toolchain.cmake "set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_CXX_COMPILER ${CLANG_CL})
set(CMAKE_CXX_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_AR ${LLVM_LIB})
foreach(tool LINKER MT RC_COMPILER)
  set(CMAKE_\${tool} true)
endforeach()
")
execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${ROOT} -B ${WORK}/build -D CMAKE_TOOLCHAIN_FILE=${WORK}/toolchain.cmake
  -D CMAKE_BUILD_TYPE=Release -D KEST_BUILD_TESTS=OFF -Wno-dev OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(STRINGS ${WORK}/build/build.ninja flags REGEX "FLAGS = ")
list(REMOVE_DUPLICATES flags)
if(NOT flags MATCHES "/W4")
  message(FATAL_ERROR "No target has the options of MSVC: ${flags}")
endif()
foreach(line IN LISTS flags)
  if(line MATCHES " -(f|W|pthread)")
    message(SEND_ERROR "An option that MSVC does not know: ${line}")
  endif()
endforeach()
