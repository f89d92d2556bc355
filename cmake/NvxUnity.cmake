# nvx_join_by_room(TARGET SOURCE ...)
# Where a build joins sources (CMAKE_UNITY_BUILD), those of one folder become one source: names that a source keeps
# to itself have to differ within their room alone, however many sources come and go elsewhere. The settings
# classes call the numbers of their keys alike and stay apart.
function(nvx_join_by_room TARGET)
  foreach(SOURCE ${ARGN})
    get_filename_component(FOLDER ${SOURCE} DIRECTORY)
    get_filename_component(ROOM ${FOLDER} NAME)
    if(NOT ROOM STREQUAL "settings")
      set_source_files_properties(${SOURCE} PROPERTIES UNITY_GROUP ${ROOM})
    endif()
  endforeach()
  set_target_properties(${TARGET} PROPERTIES UNITY_BUILD_MODE GROUP)
endfunction()
