# A login helper for an application, made of the sources in app/ and ctl/: the house's own, and those of the projects
# that have found the installed package, in which this file and the sources stand beside each other as they do here.
include(${CMAKE_CURRENT_LIST_DIR}/LoginFiles.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/PropertyList.cmake)
set_property(GLOBAL PROPERTY LFOUNDATION_VERSION ${LFoundation_VERSION})

# What is wrong with the value of an argument, if it is.
function(lfoundation_refuse argument value why)
  message(FATAL_ERROR "${argument} is '${value}': it must ${why}")
endfunction()

# Bundles and settings are files that are called after them, and what reads these has buffers of 260 bytes.
function(lfoundation_check_text argument value limit)
  string(LENGTH "${value}" length)
  if(length EQUAL 0 OR length GREATER limit)
    lfoundation_refuse(${argument} "${value}" "have 1 to ${limit} bytes, not ${length}")
  endif()
  string(ASCII 1 first)
  string(ASCII 31 last)
  string(ASCII 127 delete)
  if(value MATCHES "[${first}-${last}${delete}]" OR value MATCHES "[;$\\]" OR value MATCHES "^ | $")
    lfoundation_refuse(${argument} "${value}" "not begin or end with a blank, nor hold a control character, \\, ; or $")
  endif()
endfunction()

function(lfoundation_check_identifier argument value limit)
  lfoundation_check_text(${argument} "${value}" ${limit})
  if(NOT value MATCHES "^[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)+$")
    lfoundation_refuse(${argument} "${value}" "be words of letters, digits and - with dots between them")
  endif()
endfunction()

function(lfoundation_check_identity name identifier app_name app_identifier app_version app_path)
  lfoundation_check_text(APP_NAME "${app_name}" 251) # with .app the name of a file
  if(app_name MATCHES "/")
    lfoundation_refuse(APP_NAME "${app_name}" "not hold /")
  endif()
  lfoundation_check_text(APP_PATH "${app_path}" 259)
  if(NOT app_path MATCHES "^/")
    lfoundation_refuse(APP_PATH "${app_path}" "begin with /")
  endif()
  lfoundation_check_identifier(APP_IDENTIFIER "${app_identifier}" 249)
  # The socket's path has 107 bytes, of which these are left for each user, whatever the number.
  lfoundation_check_identifier(IDENTIFIER "${identifier}" 72)
  if(NOT name MATCHES "^[a-z][a-z0-9_-]*$")
    lfoundation_refuse(NAME "${name}" "be small letters, digits, _ and -")
  endif()
  if(NOT app_version MATCHES "^(0|[1-9][0-9]*)\\.(0|[1-9][0-9]*)$"
      OR CMAKE_MATCH_1 GREATER 999999999 OR CMAKE_MATCH_2 GREATER 999999999)
    lfoundation_refuse(APP_VERSION "${app_version}" "be MAJOR.MINOR, such as 3.1")
  endif()
endfunction()

# Each field of the identity, as a file of that form has it.
macro(lfoundation_set_fields form)
  foreach(field NAME IDENTIFIER APP_NAME APP_IDENTIFIER APP_VERSION APP_PATH GROUP VERSION)
    lfoundation_escape(${field} ${form} "${arg_${field}}")
  endforeach()
endmacro()

# lfoundation_add_login_helper(TARGET target APP_NAME name APP_IDENTIFIER id APP_VERSION major.minor IDENTIFIER id
#     [APP_PATH path] [NAME name] [GROUP id] [FOLDER folder])
#
# The login helper of an application: the program TARGET in the bundle NAME.app (loginhelper.app), which is put together
# in FOLDER (the current binary folder); in an application that is .../Contents/Library/LoginItems.
#
# APP_NAME, APP_IDENTIFIER and APP_VERSION are what the application's bundle is called and its Info.plist tells:
# CFBundleDisplayName, CFBundleIdentifier and the beginning of CFBundleVersion. APP_PATH is where it is expected by who
# is not told (/Applications/APP_NAME.app). IDENTIFIER is that of the helper: its service, its settings, and its
# autostart entry and units, which are written for the bundle in FOLDER and stand in TARGET_login in the current binary
# folder. GROUP, an application group, has the helper's entitlements written, as TARGET.entitlements.
#
# TARGET_contract gives those who link with it <LoginHelperContract.h>: these names, and the keys of the messages.
function(lfoundation_add_login_helper)
  cmake_parse_arguments(PARSE_ARGV 0 arg ""
    "TARGET;NAME;IDENTIFIER;APP_NAME;APP_IDENTIFIER;APP_VERSION;APP_PATH;GROUP;FOLDER" "")
  if(NOT arg_TARGET OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "lfoundation_add_login_helper: TARGET is missing, or unknown: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  foreach(default "NAME;loginhelper" "APP_PATH;/Applications/${arg_APP_NAME}.app" "FOLDER;${CMAKE_CURRENT_BINARY_DIR}")
    list(POP_FRONT default argument)
    if("${arg_${argument}}" STREQUAL "")
      set(arg_${argument} "${default}")
    endif()
  endforeach()
  # As the program's folder would be taken; the entry needs a full path.
  cmake_path(ABSOLUTE_PATH arg_FOLDER BASE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}" NORMALIZE)
  lfoundation_check_identity("${arg_NAME}" "${arg_IDENTIFIER}" "${arg_APP_NAME}" "${arg_APP_IDENTIFIER}"
    "${arg_APP_VERSION}" "${arg_APP_PATH}")
  get_property(arg_VERSION GLOBAL PROPERTY LFOUNDATION_VERSION)
  set(app ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../app)
  set(bundle "${arg_FOLDER}/${arg_NAME}.app")

  set(contract ${CMAKE_CURRENT_BINARY_DIR}/${arg_TARGET}_contract)
  lfoundation_set_fields(cxx)
  configure_file(${app}/LoginHelperContract.h.in ${contract}/LoginHelperContract.h @ONLY)
  lfoundation_set_fields(xml)
  lfoundation_property_list(${app}/Info.plist.in "${bundle}/Contents/Info.plist")
  if(arg_GROUP)
    lfoundation_check_identifier(GROUP "${arg_GROUP}" 255)
    configure_file(${app}/loginhelper.entitlements.in ${CMAKE_CURRENT_BINARY_DIR}/${arg_TARGET}.entitlements @ONLY)
  endif()
  lfoundation_write_login_files(${CMAKE_CURRENT_BINARY_DIR}/${arg_TARGET}_login "${bundle}" ${arg_NAME}
    ${arg_IDENTIFIER} "${arg_APP_NAME}")

  add_library(${arg_TARGET}_contract INTERFACE)
  target_include_directories(${arg_TARGET}_contract BEFORE INTERFACE ${contract})
  # What the helper decides at login and where it serves; its control program foretells both.
  set(shared ${app}/ForeignEnvironment.cpp ${app}/LoginDecision.cpp ${app}/RuntimeFolder.cpp)
  add_library(${arg_TARGET}_decision OBJECT ${shared})
  target_link_libraries(${arg_TARGET}_decision PUBLIC ${arg_TARGET}_contract LFoundation::static)
  file(GLOB sources CONFIGURE_DEPENDS ${app}/*.cpp)
  list(REMOVE_ITEM sources ${shared})
  add_executable(${arg_TARGET} ${sources})
  target_link_libraries(${arg_TARGET} PRIVATE ${arg_TARGET}_decision)
  target_compile_definitions(${arg_TARGET} PRIVATE LFOUNDATION_VERSION="${arg_VERSION}")
  set_target_properties(${arg_TARGET} PROPERTIES OUTPUT_NAME ${arg_NAME}
    RUNTIME_OUTPUT_DIRECTORY "$<1:${bundle}/Contents/MacOS>" LFOUNDATION_NAME ${arg_NAME}
    LFOUNDATION_IDENTIFIER ${arg_IDENTIFIER} LFOUNDATION_APP_NAME "${arg_APP_NAME}" LFOUNDATION_BUNDLE "${bundle}")
endfunction()

# lfoundation_add_login_control(TARGET target HELPER target): the program, called as the helper with "ctl" behind its
# name, with which a person tests, switches and examines that helper.
function(lfoundation_add_login_control)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "TARGET;HELPER" "")
  get_property(version GLOBAL PROPERTY LFOUNDATION_VERSION)
  get_target_property(name ${arg_HELPER} LFOUNDATION_NAME)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../ctl/*.cpp)
  add_executable(${arg_TARGET} ${sources})
  target_include_directories(${arg_TARGET} PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../app)
  target_link_libraries(${arg_TARGET} PRIVATE ${arg_HELPER}_decision)
  target_compile_definitions(${arg_TARGET} PRIVATE LFOUNDATION_VERSION="${version}")
  set_target_properties(${arg_TARGET} PROPERTIES OUTPUT_NAME ${name}ctl)
endfunction()

# lfoundation_install_login_helper(TARGET target DESTINATION folder): installs the helper's bundle into the folder, and
# what starts it to where sessions look, when the prefix is one that they know.
function(lfoundation_install_login_helper)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "TARGET;DESTINATION" "")
  include(GNUInstallDirs)
  foreach(property name identifier app_name bundle)
    string(TOUPPER LFOUNDATION_${property} upper)
    get_target_property(${property} ${arg_TARGET} ${upper})
  endforeach()
  install(TARGETS ${arg_TARGET} RUNTIME DESTINATION "${arg_DESTINATION}/${name}.app/Contents/MacOS")
  install(FILES "${bundle}/Contents/Info.plist" DESTINATION "${arg_DESTINATION}/${name}.app/Contents")
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${arg_TARGET}_install.cmake)
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/InstallLogin.cmake.in ${script} @ONLY)
  install(SCRIPT ${script})
endfunction()
