# Compiler settings of all targets of this project. They are not exported to users of the library.
include_guard(GLOBAL)

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_THREAD_PREFER_PTHREAD ON)
find_package(Threads REQUIRED)

# All checkouts share the ccache, because paths are relative to the checkout. ccache stores the tests' precompiled header only
# with these settings, which say that it depends on its contents alone.
find_program(KEST_CCACHE ccache)
if(PROJECT_IS_TOP_LEVEL AND KEST_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1
      CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${KEST_CCACHE}")
endif()

# The runtime of MinGW's GCC is in these DLLs. Library and programs share one, so that exceptions pass from one to the other.
set(KEST_RUNTIME_LIBRARIES "")
if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name} OUTPUT_VARIABLE file
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND KEST_RUNTIME_LIBRARIES ${file})
  endforeach()
  if(PROJECT_IS_TOP_LEVEL)
    file(COPY ${KEST_RUNTIME_LIBRARIES} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  endif()
endif()

# Sets the standard, warnings and sanitizers of a target.
function(kest_configure target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  if(MSVC)
    kest_configure_msvc(${target})
  else()
    kest_configure_gnu(${target})
  endif()
endfunction()

# 4251, 4275: exported classes have members and bases of the standard library; user and library have the same compiler.
# 5030: an attribute of another compiler.
function(kest_configure_msvc target)
  target_compile_options(${target} PRIVATE /W4 /wd4251 /wd4275 /wd5030 /permissive- /utf-8)
  if(KEST_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE /WX)
  endif()
endfunction()

function(kest_configure_gnu target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  # GCC 12 reports overlaps in the standard library's strings that do not exist.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  if(MINGW)
    # The same sources result in the same bytes.
    target_link_options(${target} PRIVATE LINKER:--no-insert-timestamp)
  endif()
  if(CMAKE_UNITY_BUILD)
    # A local name may be that of a constant in another source that is compiled with it.
    target_compile_options(${target} PRIVATE -Wno-shadow)
  endif()
  if(KEST_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(KEST_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KEST_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${KEST_SANITIZE})
    if(KEST_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined)
    endif()
    # With the code of the sanitizers GCC reports uninitialised variables on paths that do not exist.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  endif()
  if(KEST_BUILD_FUZZERS)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# Gives a DLL or a program for Windows the version and the description that the system shows among the properties of the file.
# The resource is a target of its own, because its compiler does not know the options of the others.
function(kest_add_version_resource target file_name description)
  if(WIN32)
    set(file_type 1)  # a program
    if(file_name MATCHES "\\.dll$")
      set(file_type 2)
    endif()
    get_filename_component(name ${file_name} NAME_WLE)
    string(REPLACE . , numbers ${PROJECT_VERSION})
    configure_file(${PROJECT_SOURCE_DIR}/packaging/windows/version.rc.in ${target}.rc @ONLY)
    add_library(${target}_version OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${target}_version>)
  endif()
endfunction()

# Makes the precompiled header of a target one that ccache can store.
function(kest_cacheable_precompiled_header target)
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>
                                           "$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
endfunction()
