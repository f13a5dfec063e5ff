# The walls between the rooms of lib/ and port/: before anything of a room is compiled, cmake/CheckWalls.cmake looks
# at every include, with the list of rooms that is written here.
get_property(rooms GLOBAL PROPERTY LFOUNDATION_ROOMS)
set(WALLS_ROOMS "")
foreach(room IN LISTS rooms)
  get_target_property(needs lfoundation_${room} LFOUNDATION_NEEDS)
  get_target_property(held lfoundation_${room} LFOUNDATION_HOLDS)
  string(APPEND WALLS_ROOMS "room(${room} NEEDS ${needs} HOLDS ${held})\n")
endforeach()
set(WALLS_LIST ${PROJECT_BINARY_DIR}/rooms.cmake)
set(WALLS_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/CheckWalls.cmake)
set(WALLS_STAMP ${PROJECT_BINARY_DIR}/rooms.checked)
file(CONFIGURE OUTPUT ${WALLS_LIST} CONTENT "${WALLS_ROOMS}" @ONLY)

set(patterns lib/*.h lib/*.cpp port/*.h port/*.cpp app/*.h app/*.cpp)
list(TRANSFORM patterns PREPEND ${PROJECT_SOURCE_DIR}/)
file(GLOB_RECURSE files CONFIGURE_DEPENDS ${patterns})
add_custom_command(OUTPUT ${WALLS_STAMP} DEPENDS ${WALLS_LIST} ${WALLS_SCRIPT} ${files}
  COMMAND ${CMAKE_COMMAND} -DROOT=${PROJECT_SOURCE_DIR} -DLIST=${WALLS_LIST} -P ${WALLS_SCRIPT}
  COMMAND ${CMAKE_COMMAND} -E touch ${WALLS_STAMP}
  COMMENT "Looking at the walls between the rooms" VERBATIM)
add_custom_target(lfoundation_walls DEPENDS ${WALLS_STAMP})
foreach(room IN LISTS rooms)
  add_dependencies(lfoundation_${room} lfoundation_walls)
endforeach()
