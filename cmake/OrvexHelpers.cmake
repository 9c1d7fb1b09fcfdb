# One place for the boilerplate every Orvex target shares.

function(orvex_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

# orvex_library(NAME [SHARED] SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
function(orvex_library name)
  cmake_parse_arguments(ARG "SHARED" "" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
  if(ARG_SHARED)
    add_library(${name} SHARED ${ARG_SOURCES})
  else()
    add_library(${name} STATIC ${ARG_SOURCES})
  endif()
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  orvex_warnings(${name})
endfunction()

# orvex_test(NAME SOURCES ... LIBS ... [ENV ...])
function(orvex_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;ENV" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
  orvex_warnings(${name})
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    DISCOVERY_TIMEOUT 60)
  # The environment is set by a file ctest includes after the discovered tests: passed as a
  # test property through gtest_discover_tests, a list loses its separators and only the
  # first variable reaches the tests.
  if(ARG_ENV)
    set(env_file "${CMAKE_CURRENT_BINARY_DIR}/${name}_environment.cmake")
    file(GENERATE OUTPUT "${env_file}" CONTENT
      "if(${name}_TESTS)\n  set_tests_properties(\${${name}_TESTS} PROPERTIES ENVIRONMENT [==[${ARG_ENV}]==])\nendif()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${env_file}")
  endif()
endfunction()
