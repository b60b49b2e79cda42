# Run with HEADERS, the public headers as a program includes them, and ALL, the one that includes the others.
cmake_minimum_required(VERSION 3.22)

file(READ ${ALL} text)
foreach(header IN LISTS HEADERS)
  string(FIND "${text}" "\n#include <${header}>\n" place)
  if(place EQUAL -1 AND NOT header STREQUAL "support/support.h")
    message(SEND_ERROR "support/support.h does not include ${header}")
  endif()
endforeach()
