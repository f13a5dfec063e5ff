# How every target of the house is compiled, and the functions that add a room, a program, a test or a fuzz
# target. What a project that adds this one would see, functions and targets, begins with `lfoundation_`.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Public headers export what they declare, and nothing else is (cmake/CheckWalls.cmake). A call from inside the
# library is to its own function all the same, and may be inlined.
add_library(lfoundation_house INTERFACE)
target_compile_options(lfoundation_house INTERFACE -fno-semantic-interposition)
target_compile_options(lfoundation_house INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wundef -Wformat=2 -Wcast-qual -Wmissing-declarations
  -Wnon-virtual-dtor)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(lfoundation_house INTERFACE -Wsuggest-override)
else()
  target_compile_options(lfoundation_house INTERFACE -Wsuggest-override -Wno-unused-command-line-argument)
endif()
# For those who develop; who builds a package meets a compiler that we have not seen, and is only told.
option(LFOUNDATION_WERROR "Warnings are errors" OFF)
if(LFOUNDATION_WERROR)
  target_compile_options(lfoundation_house INTERFACE -Werror)
endif()

if(LFOUNDATION_SANITIZE)
  add_compile_options(-fsanitize=${LFOUNDATION_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # The check of virtual tables opens a pipe to look at memory, and reports a fault where there is no descriptor.
  add_compile_options(-fno-sanitize=vptr)
  add_link_options(-fsanitize=${LFOUNDATION_SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  include(CheckCXXCompilerFlag)
  # Checked calls of the C library. Level 3, which knows sizes at run time too, costs formatted text a quarter and
  # UTF-16 of the other byte order a half.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  # Only targets of known code may be jumped to, no stack grows past its guard, and no value of an earlier call shows
  # through a variable that nobody has set.
  foreach(flag -fcf-protection -fstack-clash-protection -ftrivial-auto-var-init=zero)
    string(MAKE_C_IDENTIFIER LFOUNDATION_HAS${flag} known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      add_compile_options(${flag})
    endif()
  endforeach()
  add_link_options(-Wl,-z,relro,-z,now)
  # Where the sources lay is nobody's business, and two builds of them are to be the same, wherever they are made.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=./build)
  # What a program does not call is left out of it.
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections -Wl,--as-needed)
endif()
if(LFOUNDATION_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

# lfoundation_room(NAME SOURCES ... [HEADERS ...] [PUBLIC ...] [NEEDS ...] [COMPACT]): the objects of one room, the
# target lfoundation_NAME. A room holds its sources, each with the header of its name, further HEADERS, what PUBLIC
# names below port/include, and what no other room holds in a folder of the room's own name. NEEDS names the rooms
# it stands on; it may include nothing else, see cmake/Walls.cmake. COMPACT: seldom run, small before fast.
function(lfoundation_room name)
  cmake_parse_arguments(arg "COMPACT" "" "SOURCES;HEADERS;PUBLIC;NEEDS" ${ARGN})
  add_library(lfoundation_${name} OBJECT ${arg_SOURCES})
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE folder)
  set(held ${arg_SOURCES} ${arg_HEADERS})
  list(TRANSFORM held PREPEND ${folder}/)
  list(TRANSFORM arg_PUBLIC PREPEND port/include/)
  list(APPEND held ${arg_PUBLIC})
  string(REPLACE _ / path ${name})
  if(folder MATCHES "(^|/)${path}$")
    list(APPEND held ${folder})
  endif()
  set_target_properties(lfoundation_${name} PROPERTIES LFOUNDATION_NEEDS "${arg_NEEDS}"
    LFOUNDATION_HOLDS "${held}")
  list(TRANSFORM arg_NEEDS PREPEND lfoundation_)
  target_link_libraries(lfoundation_${name} PRIVATE lfoundation_house PUBLIC Threads::Threads ${arg_NEEDS})
  target_compile_definitions(lfoundation_${name} PRIVATE LFOUNDATION_ROOM)
  if(arg_COMPACT AND NOT LFOUNDATION_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(lfoundation_${name} PRIVATE -Os)
  endif()
endfunction()

# lfoundation_program(NAME SOURCES ... [LIBS ...]): the program NAME, made by the target lfoundation_NAME.
function(lfoundation_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(lfoundation_${name} ${arg_SOURCES})
  target_link_libraries(lfoundation_${name} PRIVATE lfoundation_house ${arg_LIBS})
  set_target_properties(lfoundation_${name} PROPERTIES OUTPUT_NAME ${name})
endfunction()

# lfoundation_test(NAME SOURCES ... LIBS ... [TIMEOUT s] [LABELS ...]): a GoogleTest program under ctest,
# one ctest entry a test case.
function(lfoundation_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  lfoundation_program(${name} SOURCES ${arg_SOURCES}
    LIBS lfoundation_test_support ${arg_LIBS} GTest::gtest GTest::gtest_main)
  gtest_discover_tests(lfoundation_${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()

# lfoundation_fuzz(NAME SOURCE file LIBS ...): a libFuzzer program when the fuzz targets are built, else a
# ctest entry that replays the corpus fuzz/corpus/NAME through the same entry point.
function(lfoundation_fuzz name)
  cmake_parse_arguments(arg "" "SOURCE" "LIBS" ${ARGN})
  lfoundation_program(fuzz_${name} SOURCES ${arg_SOURCE} LIBS ${arg_LIBS})
  target_include_directories(lfoundation_fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/port)
  if(LFOUNDATION_FUZZ)
    target_link_options(lfoundation_fuzz_${name} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(lfoundation_fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/ReplayMain.cpp)
    add_test(NAME fuzz.replay.${name}
             COMMAND lfoundation_fuzz_${name} ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
    set_tests_properties(fuzz.replay.${name} PROPERTIES TIMEOUT 120)
  endif()
endfunction()
