# One place for the boilerplate every Orvex target shares.

# Warnings for every target of ours (never for the system's headers).
function(orvex_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wold-style-cast
    -Wduplicated-cond -Wlogical-op)
endfunction()

# orvex_layer(NAME LAYER <layer> ROOT <dir> SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
# One layer of the code as a static library. Its headers are staged (as symbolic links) in
# a tree of their own, <build>/layers/<layer>, and that tree is the only include directory the
# library exports: a target sees its own layer and, through PUBLIC_LIBS, the layers below it,
# never a layer above. Includes keep the form "subsystem/file.h", relative to ROOT.
function(orvex_layer name)
  cmake_parse_arguments(ARG "" "LAYER;ROOT" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
  set(tree ${CMAKE_BINARY_DIR}/layers/${ARG_LAYER})
  # Restaged from scratch, so a header that moved to another layer does not linger here.
  file(REMOVE_RECURSE ${tree})
  foreach(file IN LISTS ARG_SOURCES)
    if(file MATCHES "\\.h$")
      file(RELATIVE_PATH rel ${ARG_ROOT} ${file})
      get_filename_component(dir ${tree}/${rel} DIRECTORY)
      file(MAKE_DIRECTORY ${dir})
      file(CREATE_LINK ${file} ${tree}/${rel} SYMBOLIC)
    endif()
  endforeach()
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${tree})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  orvex_warnings(${name})
endfunction()

# orvex_layer_probe(LOWER_TARGET HEADER EXPECT reached|unreached)
# A test that compiles a one-line source including HEADER with exactly the flags of
# LOWER_TARGET. "unreached" proves that a layer cannot include a header of a layer above it
# (the compile must fail); "reached" proves that the probe itself works.
function(orvex_layer_probe target header expect)
  string(MAKE_C_IDENTIFIER "${target}_${header}" id)
  set(src ${CMAKE_BINARY_DIR}/layer_probes/${id}.cpp)
  file(CONFIGURE OUTPUT ${src} CONTENT "#include \"${header}\"\n")
  add_library(probe_${id} OBJECT EXCLUDE_FROM_ALL ${src})
  target_link_libraries(probe_${id} PRIVATE ${target})
  add_test(NAME layering.${target}.${expect}.${header}
    COMMAND ${CMAKE_COMMAND} --build ${CMAKE_BINARY_DIR} --target probe_${id})
  # Builds in one build directory must not run side by side.
  set_tests_properties(layering.${target}.${expect}.${header} PROPERTIES RESOURCE_LOCK build_tree)
  if(expect STREQUAL "unreached")
    # Passes only when the compiler could not find the header, not on any other failure.
    string(REPLACE "." "\\." pattern "${header}: No such file or directory")
    set_tests_properties(layering.${target}.${expect}.${header} PROPERTIES
      PASS_REGULAR_EXPRESSION "${pattern}")
  endif()
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
