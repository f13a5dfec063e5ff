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

# What lfoundation_add_login_helper makes helpers of, with the folders as they are here.
set(LFOUNDATION_SOURCES_DIR ${CMAKE_INSTALL_DATADIR}/lfoundation)
install(DIRECTORY app ctl DESTINATION ${LFOUNDATION_SOURCES_DIR}
  FILES_MATCHING PATTERN "*.h" PATTERN "*.cpp" PATTERN "*.in")
install(DIRECTORY packaging/units DESTINATION ${LFOUNDATION_SOURCES_DIR}/packaging)
# The code of an application's switch "start at login", to be copied.
install(FILES examples/mainapp/HelperQuestion.h examples/mainapp/StartAtLogin.cpp examples/mainapp/StartAtLogin.h
  DESTINATION ${LFOUNDATION_SOURCES_DIR}/examples/mainapp)
install(FILES cmake/LoginHelper.cmake cmake/LoginFiles.cmake cmake/PropertyList.cmake cmake/InstallLogin.cmake.in
  DESTINATION ${LFOUNDATION_SOURCES_DIR}/cmake)

set(LFOUNDATION_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/LFoundation)
install(EXPORT LFoundationTargets NAMESPACE LFoundation:: DESTINATION ${LFOUNDATION_CMAKE_DIR})
configure_package_config_file(cmake/LFoundationConfig.cmake.in
  ${PROJECT_BINARY_DIR}/LFoundationConfig.cmake INSTALL_DESTINATION ${LFOUNDATION_CMAKE_DIR}
  PATH_VARS LFOUNDATION_SOURCES_DIR NO_SET_AND_CHECK_MACRO)
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
