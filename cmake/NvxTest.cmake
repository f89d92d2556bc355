# nvx_add_test(NAME [SOURCES ...] [LIBRARIES ...] [LABELS ...] [TIMEOUT seconds] [SERIAL])
# Builds NAME from NAME.cpp and SOURCES in the calling folder and registers it with CTest.
# Labels in use: threads (run under TSan), long (only by ./check --long), serial tests take SERIAL.

# Builds what runs under TSan, and no more.
add_custom_target(threads_tests)

function(nvx_add_test NAME)
  cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  add_executable(${NAME} ${NAME}.cpp ${ARG_SOURCES})
  # A test includes its own moc output, which a joined source file can't do twice.
  set_target_properties(${NAME} PROPERTIES UNITY_BUILD OFF)
  target_link_libraries(${NAME} PRIVATE NvxQtCommon nvx_test_support nvx_warnings Qt6::Test ${ARG_LIBRARIES})
  add_test(NAME ${NAME} COMMAND ${NAME})
  set_tests_properties(${NAME} PROPERTIES
    LABELS "${ARG_LABELS}"
    TIMEOUT ${ARG_TIMEOUT}
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QTEST_FUNCTION_TIMEOUT=100000")
  if(ARG_SERIAL)
    set_tests_properties(${NAME} PROPERTIES RUN_SERIAL TRUE)
  endif()
  if("threads" IN_LIST ARG_LABELS)
    add_dependencies(threads_tests ${NAME})
  endif()
endfunction()
