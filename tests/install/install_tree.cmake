# Installs BUILD_TREE into TREE, from nothing, and looks at what the package gives away.
file(REMOVE_RECURSE ${TREE} ${WORK}/install_cmake_package ${WORK}/install_examples ${WORK}/consumer_by_pkg_config)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_TREE} --prefix ${TREE}
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

file(GLOB_RECURSE TARGET_FILES ${TREE}/*/NvxQtCommonTargets*.cmake)
if(NOT TARGET_FILES)
  message(FATAL_ERROR "no exported targets under ${TREE}")
endif()
# Private parts of the library are no business of a consumer, nor is the place where it was built.
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH TESTS_DIR)
cmake_path(GET TESTS_DIR PARENT_PATH SOURCE_TREE)
foreach(FILE ${TARGET_FILES})
  file(READ ${FILE} TEXT)
  foreach(PRIVATE_NAME nvx_contract nvx_warnings ZLIB CURL xxhash "${BUILD_TREE}" "${SOURCE_TREE}")
    string(FIND "${TEXT}" "${PRIVATE_NAME}" FOUND)
    if(NOT FOUND EQUAL -1)
      message(FATAL_ERROR "${FILE} gives away ${PRIVATE_NAME}")
    endif()
  endforeach()
endforeach()
