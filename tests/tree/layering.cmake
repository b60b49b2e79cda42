# Holds every include to the table of folders below, the operating system's headers to the back ends of the platform layer, and
# public headers to each other and the standard library. Run with ROOT.
cmake_minimum_required(VERSION 3.22)

# A folder of src/ (or the start of a file's path), and what its files may include from outside: folders, or single headers. A
# public header belongs to the folder that implements it. "platform" means the contracts.
set(log text/log/internal_log.h)
set(edges
  "platform              | "
  "platform/common       | platform"
  "platform/emulated     | platform platform/common"
  "platform/services     | platform platform/common platform/emulated"
  "platform/linux        | platform platform/common platform/emulated platform/services"
  "platform/windows      | platform platform/common"
  "core                  | platform platform/common ${log} support/locks.h sync/biased_guard.h support/strings.h support/locales.h"
  "sync                  | platform platform/common ${log} core"
  "threads               | platform platform/common ${log} core sync"
  "text                  | platform platform/common core sync"
  "text/log/log_watchdog | support/threads.h support/timers.h threads/timer_deferral.h"
  "values                | platform platform/common core sync text"
  "os                    | platform platform/common core sync threads text values"
  "tools                 | platform core sync threads text values os"
  "examples              | core sync threads text values os"
  "umbrella              | core sync threads text values os")  # support/support.h, which only other projects include
set(no_system_header "^([a-z_]+|support/[a-z_]+\\.h|(cpuid|cxxabi|emmintrin)\\.h)$")

foreach(edge IN LISTS edges)
  string(REGEX REPLACE " *\\| *" ";" edge "${edge}")
  list(GET edge 0 from)
  list(GET edge 1 allowed)
  string(REPLACE " " ";" allowed_${from} "${allowed}")
  list(APPEND froms ${from})
  foreach(to IN LISTS allowed_${from})
    if(to MATCHES "\\.h$" AND NOT EXISTS ${ROOT}/src/${to} AND NOT EXISTS ${ROOT}/include/${to})
      message(SEND_ERROR "the table allows ${from} to include ${to}, which does not exist")
    endif()
  endforeach()
endforeach()

set(files "")
foreach(folder include src tools examples)
  file(GLOB_RECURSE found RELATIVE ${ROOT} ${ROOT}/${folder}/*.h ${ROOT}/${folder}/*.cpp)
  if(NOT found)
    message(FATAL_ERROR "No sources in ${ROOT}/${folder}")
  endif()
  list(APPEND files ${found})
endforeach()

# Sets home_NAME to the folder of src/ with NAME.cpp or the folder NAME, for each public header support/NAME.h. Headers of macros
# have none.
set(home_support umbrella)
foreach(header IN LISTS files)
  if(NOT header MATCHES "/(export|version_macros|support)\\.h$" AND header MATCHES "^include/support/([a-z_]+)\\.h$")
    set(name ${CMAKE_MATCH_1})
    set(sources ${files})
    list(FILTER sources INCLUDE REGEX "^src/[a-z]+/(.*/)?${name}(\\.cpp|/[a-z_]+\\.cpp)$")
    list(FILTER sources EXCLUDE REGEX "^src/platform/")
    if(NOT sources MATCHES "^src/([a-z]+)/")
      message(SEND_ERROR "${header}: no folder of src/ implements it")
    endif()
    set(home_${name} ${CMAKE_MATCH_1})
  endif()
endforeach()

# Sets FOLDER to the row of the table for PATH: a path in ROOT or as an include names it.
function(folder_of path folder)
  string(REGEX REPLACE "^(src|include)/" "" path ${path})
  if(path MATCHES "^support/([a-z_]+)\\.h$")
    set(${folder} "${home_${CMAKE_MATCH_1}}" PARENT_SCOPE)
  else()
    string(REGEX MATCH "^(platform/[a-z]+/|[a-z]+/)" match ${path})
    string(REGEX REPLACE "/$" "" match "${match}")
    set(${folder} "${match}" PARENT_SCOPE)
  endif()
endfunction()

foreach(file IN LISTS files)
  folder_of(${file} folder)
  set(allowed ${folder} ${allowed_${folder}})
  foreach(from IN LISTS froms)
    if(from MATCHES "/.*/" AND file MATCHES "^src/${from}")
      list(APPEND allowed ${allowed_${from}})
    endif()
  endforeach()

  if(file MATCHES "^include/" AND NOT file MATCHES "/exceptions\\.h$")
    file(READ ${ROOT}/${file} text)
    if(text MATCHES "[Tt]hrows Kest" AND NOT text MATCHES "include [\"<]support/exceptions\\.h[\">]")
      message(SEND_ERROR "${file}: throws an exception that it does not include")
    endif()
  endif()

  file(STRINGS ${ROOT}/${file} lines REGEX "^[ \t]*#[ \t]*(include|if|ifdef|ifndef|elif)")
  foreach(line IN LISTS lines)
    set(system_header FALSE)
    if(line MATCHES "include[ \t]*<([^>]+)>" AND NOT CMAKE_MATCH_1 MATCHES "${no_system_header}")
      set(system_header TRUE)
    endif()
    if((system_header OR (line MATCHES "_WIN32|__linux__|__unix__" AND NOT file STREQUAL "include/support/export.h"))
       AND NOT file MATCHES "^(src/platform|examples/agent)/(linux|windows)/")
      message(SEND_ERROR "${file}: ${line}: belongs to the folder of a system")
    endif()
    if(NOT line MATCHES "include[ \t]*[\"<]([a-z_]+/[a-z_/]+\\.h)[\">]")
      continue()
    endif()
    set(header ${CMAKE_MATCH_1})
    folder_of(${header} to)
    if(file MATCHES "^include/" AND NOT header MATCHES "^support/")
      message(SEND_ERROR "${file}: ${line}: a public header includes <support/NAME.h> and the standard library only")
    elseif(to AND (EXISTS ${ROOT}/src/${to} OR to STREQUAL "umbrella") AND NOT to IN_LIST allowed AND NOT header IN_LIST allowed)
      message(SEND_ERROR "${file}: ${line}: the table of folders does not allow it")
    endif()
  endforeach()
endforeach()
