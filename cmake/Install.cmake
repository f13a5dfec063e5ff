# The install tree of the library: the archives, their headers, and what find_package and pkg-config need. The tree may
# be moved: nothing in it holds its path.
include(CMakePackageConfigHelpers)

set(forms lfoundation lfoundation_port)
if(BUILD_SHARED_LIBS)
  list(APPEND forms lfoundation_shared)
endif()
install(TARGETS ${forms} EXPORT LFoundationTargets)
# What stands in a folder `internal` is not for users of the library.
install(DIRECTORY lib/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lfoundation
  FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)
install(DIRECTORY port/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lfoundation/port
  FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)

set(LFOUNDATION_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/LFoundation)
install(EXPORT LFoundationTargets NAMESPACE LFoundation:: DESTINATION ${LFOUNDATION_CMAKE_DIR})
configure_package_config_file(cmake/LFoundationConfig.cmake.in
  ${PROJECT_BINARY_DIR}/LFoundationConfig.cmake INSTALL_DESTINATION ${LFOUNDATION_CMAKE_DIR}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/LFoundationConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/LFoundationConfig.cmake ${PROJECT_BINARY_DIR}/LFoundationConfigVersion.cmake
  DESTINATION ${LFOUNDATION_CMAKE_DIR})

# pkg-config finds the prefix from where the file lies, unless the folders have fixed places of their own.
set(PC_FOLDER ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  string(REGEX REPLACE "[^/]+" ".." PC_PREFIX ${PC_FOLDER})
  string(PREPEND PC_PREFIX "\${pcfiledir}/")
endif()
foreach(folder LIBDIR INCLUDEDIR)
  set(PC_${folder} ${CMAKE_INSTALL_${folder}})
  if(NOT IS_ABSOLUTE ${PC_${folder}})
    string(PREPEND PC_${folder} "\${prefix}/")
  endif()
endforeach()
set(PC_LIBS "-llfoundation")
set(PC_LIBS_STATIC "-llfoundation-port -lexpat")
if(LFOUNDATION_STATIC_EXPAT)
  set(PC_LIBS_STATIC "-llfoundation-port -l:libexpat.a")
endif()
if(NOT BUILD_SHARED_LIBS)
  string(APPEND PC_LIBS " ${PC_LIBS_STATIC}")
  set(PC_LIBS_STATIC "")
endif()
configure_file(packaging/lfoundation.pc.in ${PROJECT_BINARY_DIR}/lfoundation.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lfoundation.pc DESTINATION ${PC_FOLDER})
