# The rooms of both layers as one shared library. Programs see what the public headers export, under the version
# LFOUNDATION_1, and nothing of what our code has instantiated of the standard library's templates or has taken from
# an archive; docs/abi.md says what is promised of it.
set(exports ${CMAKE_CURRENT_SOURCE_DIR}/exports.map)
add_library(lfoundation_shared SHARED)
get_property(rooms GLOBAL PROPERTY LFOUNDATION_ROOMS)
foreach(room IN LISTS rooms)
  target_sources(lfoundation_shared PRIVATE $<TARGET_OBJECTS:lfoundation_${room}>)
endforeach()
target_include_directories(lfoundation_shared PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/port/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/lfoundation/port>)
target_link_libraries(lfoundation_shared PUBLIC Threads::Threads PRIVATE EXPAT::EXPAT)
# Its calls of its own functions stay inside, whatever else has a function of that name, and need no look-up at load
# time. It is never unloaded: its workers run on, and its signal handlers stay.
target_link_options(lfoundation_shared PRIVATE LINKER:--version-script=${exports} LINKER:--exclude-libs,ALL
  LINKER:-Bsymbolic-functions LINKER:-z,nodelete)
if(NOT LFOUNDATION_SANITIZE)
  target_link_options(lfoundation_shared PRIVATE LINKER:-z,defs)
endif()
set_target_properties(lfoundation_shared PROPERTIES LINK_DEPENDS ${exports} OUTPUT_NAME lfoundation
  EXPORT_NAME lfoundation VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
