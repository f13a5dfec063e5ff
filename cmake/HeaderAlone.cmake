# Every header of lib/ and of the platform compiles alone: a source file that includes nothing else is made for
# each, and the target lfoundation_headers_alone compiles them all. Nothing builds it but scripts/check and
# `ctest -C headers -L headers`, which also tells what each costs those who include it.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
  ${PROJECT_SOURCE_DIR}/lib/*.h ${PROJECT_SOURCE_DIR}/port/include/*.h)

set(sources)
foreach(header IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${header} name)
  set(source ${PROJECT_BINARY_DIR}/headers_alone/${name}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "#include \"@PROJECT_SOURCE_DIR@/@header@\"\n" @ONLY)
  list(APPEND sources ${source})
endforeach()

add_library(lfoundation_headers_alone OBJECT EXCLUDE_FROM_ALL ${sources})
target_link_libraries(lfoundation_headers_alone PRIVATE lfoundation_house)
target_include_directories(lfoundation_headers_alone PRIVATE
  ${PROJECT_SOURCE_DIR}/lib ${PROJECT_SOURCE_DIR}/port/include)

if(LFOUNDATION_TESTS)
  add_test(NAME headers.alone CONFIGURATIONS headers
    COMMAND ${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target lfoundation_headers_alone)
  add_test(NAME headers.cost CONFIGURATIONS headers COMMAND ${PROJECT_SOURCE_DIR}/scripts/header-cost)
  set_tests_properties(headers.alone headers.cost PROPERTIES LABELS headers TIMEOUT 600)
endif()
