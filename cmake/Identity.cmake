# Whose login helper this build makes: every name that differs from one vendor, application or version to the next. The
# library knows none of them.
set(LFOUNDATION_TEAM "Q4KX2M9T7W" CACHE STRING "The vendor's team prefix")
set(LFOUNDATION_ORGANISATION "com.brelvanic" CACHE STRING "The vendor's domain, backwards")
set(LFOUNDATION_APP_NAME "Zubeq Free" CACHE STRING "The main application's display name")
set(LFOUNDATION_APP_IDENTIFIER "com.brelvanic.zubeqfree" CACHE STRING "The identifier of its bundle")
set(LFOUNDATION_APP_VERSION "2.14" CACHE STRING "The major and minor version that the helper launches")
set(LFOUNDATION_APP_PATH "" CACHE STRING "Where it is installed (empty: /Applications/NAME.app)")
set(LFOUNDATION_HELPER_IDENTIFIER "" CACHE STRING "The helper's identifier, after which its service, settings, \
autostart entry and units are called (empty: TEAM.ORGANISATION.loginhelper.APPLICATION, with the version's digits)")
set(LFOUNDATION_HELPER_NAME "loginhelper" CACHE STRING "The helper's program and bundle; with ctl behind it the \
program that controls it. Two helpers that are installed into one prefix need two names")

set(HELPER_IDENTIFIER "${LFOUNDATION_HELPER_IDENTIFIER}")
if(HELPER_IDENTIFIER STREQUAL "")
  string(REGEX REPLACE ".*\\." "" application "${LFOUNDATION_APP_IDENTIFIER}")
  string(REPLACE "." "" version "${LFOUNDATION_APP_VERSION}")
  set(HELPER_IDENTIFIER "${LFOUNDATION_TEAM}.${LFOUNDATION_ORGANISATION}.loginhelper.${application}${version}")
endif()

set(APP_PATH "${LFOUNDATION_APP_PATH}")
if(APP_PATH STREQUAL "")
  set(APP_PATH "/Applications/${LFOUNDATION_APP_NAME}.app")
endif()

# For scripts.
set(identity "")
foreach(field "app_name;${LFOUNDATION_APP_NAME}" "app_version;${LFOUNDATION_APP_VERSION}"
    "helper_name;${LFOUNDATION_HELPER_NAME}" "helper_identifier;${HELPER_IDENTIFIER}")
  list(POP_FRONT field name)
  lfoundation_escape(value shell "${field}")
  string(APPEND identity "${name}='${value}'\n")
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/identity.sh "${identity}")
