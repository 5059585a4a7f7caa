# Writes kavotversion.h with the build number (commit count) and the 40-digit source revision.
set(KAVOT_REVISION "0000000000000000000000000000000000000000")
set(KAVOT_BUILD_NUMBER 0)
find_package(Git QUIET)
if(GIT_FOUND AND EXISTS "${CMAKE_SOURCE_DIR}/.git")
  execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse HEAD
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE _rev
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE _rc)
  if(_rc EQUAL 0 AND _rev MATCHES "^[0-9a-f]+$")
    set(KAVOT_REVISION ${_rev})
  endif()
  execute_process(COMMAND ${GIT_EXECUTABLE} rev-list --count HEAD
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE _count
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE _rc)
  if(_rc EQUAL 0 AND _count MATCHES "^[0-9]+$")
    set(KAVOT_BUILD_NUMBER ${_count})
  endif()
endif()
configure_file(${CMAKE_SOURCE_DIR}/cmake/kavotversion.h.in ${CMAKE_BINARY_DIR}/generated/kavotversion.h @ONLY)
