# The helper's bundle with what starts it at login, and its control program with manual pages and completions. All of
# it is called after the helper, by its identifier or its name, so that the helpers of several vendors stand side by
# side. The entry and the units alone hold a path, which they get at install time.
lfoundation_install_login_helper(TARGET lfoundation_loginhelper DESTINATION ${CMAKE_INSTALL_LIBEXECDIR})
install(FILES ${PROJECT_BINARY_DIR}/app/lfoundation_loginhelper_contract/LoginHelperContract.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${LFOUNDATION_HELPER_NAME})

install(TARGETS lfoundation_loginhelperctl)
set(pages ${PROJECT_BINARY_DIR}/packaging/man)
install(FILES ${pages}/${LFOUNDATION_HELPER_NAME}ctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${pages}/${LFOUNDATION_HELPER_NAME}.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
set(completions ${PROJECT_BINARY_DIR}/packaging/completions)
install(FILES ${completions}/${LFOUNDATION_HELPER_NAME}ctl.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${LFOUNDATION_HELPER_NAME}ctl)
install(FILES ${completions}/_${LFOUNDATION_HELPER_NAME}ctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES ${completions}/${LFOUNDATION_HELPER_NAME}ctl.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
