# The install tree: the library with its headers, what find_package and pkg-config need, the helper and its
# command-line tool with their manual page, completions and units.
include(CMakePackageConfigHelpers)

install(TARGETS lfoundation lfoundation_port EXPORT LFoundationTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
set(INTERNAL_HEADERS "(Kernels|Units|DateFields|LineEnd|ZipCommand|PathText|FolderStack|TreeWalk|EventGate|Handles)\\.h$")
install(DIRECTORY lib/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lfoundation
  FILES_MATCHING PATTERN "*.h" REGEX "${INTERNAL_HEADERS}" EXCLUDE)
install(FILES app/LoginHelperContract.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lfoundation)
install(DIRECTORY port/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lfoundation/port
  FILES_MATCHING PATTERN "*.h")

set(LFOUNDATION_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/LFoundation)
install(EXPORT LFoundationTargets NAMESPACE LFoundation:: DESTINATION ${LFOUNDATION_CMAKE_DIR})
configure_package_config_file(cmake/LFoundationConfig.cmake.in
  ${PROJECT_BINARY_DIR}/LFoundationConfig.cmake INSTALL_DESTINATION ${LFOUNDATION_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/LFoundationConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/LFoundationConfig.cmake ${PROJECT_BINARY_DIR}/LFoundationConfigVersion.cmake
  DESTINATION ${LFOUNDATION_CMAKE_DIR})

configure_file(packaging/lfoundation.pc.in ${PROJECT_BINARY_DIR}/lfoundation.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lfoundation.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The helper's bundle, started at login by the session's autostart entry or by the user's service manager.
install(DIRECTORY ${PROJECT_BINARY_DIR}/app/loginhelper.app DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}
  USE_SOURCE_PERMISSIONS)
foreach(unit loginhelper.desktop loginhelper.service)
  configure_file(packaging/units/${unit}.in ${PROJECT_BINARY_DIR}/${unit} @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/loginhelper.desktop DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/xdg/autostart)
install(FILES ${PROJECT_BINARY_DIR}/loginhelper.service packaging/units/loginhelper.socket
  DESTINATION lib/systemd/user)
