# kv_add_qtest(<name> SOURCES <files...> LIBS <targets...> [LABELS <labels...>] [TIMEOUT <s>])
# One Qt Test executable registered with CTest. Tests run headless, with a private data folder
# so they never touch the user's settings, log or projects, and with a /dev/shm of their own so
# that sound libraries' machine-wide locks neither stop them nor are left taken by them.
function(kv_add_qtest name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE Qt6::Test ${ARG_LIBS})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  add_test(NAME ${name} COMMAND ${CMAKE_SOURCE_DIR}/scripts/run-with-own-shm.sh $<TARGET_FILE:${name}>)
  # The runtime folder exists, with the rights a session gives it: Qt does not make its parents,
  # and without it the single-instance lock and the sound server have no place.
  set(_run ${CMAKE_BINARY_DIR}/testdata/${name}/run)
  file(MAKE_DIRECTORY ${_run})
  file(CHMOD ${_run} DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${ARG_TIMEOUT}
    LABELS "${ARG_LABELS}"
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;XDG_DATA_HOME=${CMAKE_BINARY_DIR}/testdata/${name}/data;XDG_CONFIG_HOME=${CMAKE_BINARY_DIR}/testdata/${name}/config;XDG_RUNTIME_DIR=${CMAKE_BINARY_DIR}/testdata/${name}/run;KAVOT_BUILD_DIR=${CMAKE_BINARY_DIR};KAVOT_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
  if("thread" IN_LIST KAVOT_SANITIZE)
    # Debian's Qt and libc are not instrumented: their internal locking (QWaitCondition teardown,
    # tzset) reads as races. Reports raised inside them are ignored; ours are still reported.
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
      "TSAN_OPTIONS=die_after_fork=0 ignore_noninstrumented_modules=1 suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp")
  endif()
endfunction()
