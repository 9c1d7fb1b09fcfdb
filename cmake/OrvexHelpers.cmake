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
    PROPERTIES ENVIRONMENT "${ARG_ENV}"
    DISCOVERY_TIMEOUT 60)
endfunction()
