# What the targets of this project have in common: warnings, the header check and the form of a test.

# Every target of the project is compiled with these warnings, all of them errors. One that GCC guesses is left out: it takes
# the members of a variant's other alternative for used, at some levels of optimisation.
function(zyl_warnings target)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-maybe-uninitialized>)
endfunction()

# Proves that each header of a folder compiles on its own: one generated source a header, one object library a folder. What is
# proven is not proven again under sanitizers.
function(zyl_check_headers name folder)
  cmake_parse_arguments(ARG "" "" "LIBRARIES" ${ARGN})
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${folder} ${folder}/*.h)
  set(sources)
  foreach(header IN LISTS headers)
    set(source ${CMAKE_BINARY_DIR}/header_check/${name}/${header}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n#include \"${header}\"\n" @ONLY)
    list(APPEND sources ${source})
  endforeach()
  if(sources AND NOT ZYL_SANITIZE)
    add_library(${name}_header_check OBJECT ${sources})
    target_include_directories(${name}_header_check PRIVATE ${folder})
    target_link_libraries(${name}_header_check PRIVATE ${ARG_LIBRARIES})
    zyl_warnings(${name}_header_check)
  endif()
endfunction()

# zyl_add_test(name SOURCES ... LIBRARIES ... [PRIVATE_ACCESS] [TIMEOUT seconds])
# A GoogleTest program; ctest runs each of its cases as a process of its own, so cases never share process-wide state.
# PRIVATE_ACCESS lets a test look at private members: it checks state that has no public view.
function(zyl_add_test name)
  cmake_parse_arguments(ARG "PRIVATE_ACCESS" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} test_support GTest::gmock GTest::gtest_main)
  zyl_warnings(${name})
  if(ARG_PRIVATE_ACCESS)
    target_compile_options(${name} PRIVATE -fno-access-control)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
