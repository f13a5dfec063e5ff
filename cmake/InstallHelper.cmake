# The helper's bundle, loginhelperctl with its manual page and completions, and what starts the helper at login:
# the session's autostart entry and the units of the user's service manager.
set(HELPER_BUNDLE ${CMAKE_INSTALL_LIBEXECDIR}/loginhelper.app/Contents)
install(TARGETS lfoundation_loginhelper RUNTIME DESTINATION ${HELPER_BUNDLE}/MacOS)
install(FILES ${PROJECT_BINARY_DIR}/app/loginhelper.app/Contents/Info.plist DESTINATION ${HELPER_BUNDLE})

install(TARGETS lfoundation_loginhelperctl)
foreach(section 1 8)
  file(GLOB pages packaging/man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
install(FILES packaging/completions/loginhelperctl.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME loginhelperctl)
install(FILES packaging/completions/_loginhelperctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
file(GLOB completions packaging/completions/*.fish)
install(FILES ${completions} DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

configure_file(cmake/InstallUnits.cmake.in ${PROJECT_BINARY_DIR}/InstallUnits.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/InstallUnits.cmake)
