# Installs the build into a scratch prefix and runs the installed runner the way a user of an
# installed copy does: no --home, a fresh user data directory, the engine found from bin/.
# The demo content must be seeded into the user's directory (the program named there is
# found only after seeding), nothing may be written under the prefix, and the Bell program's
# results must match its "# expect:" line.
#
#   cmake -DBUILD_DIR=<build> -DSCRATCH=<dir> [-DVALIDATOR=desktop-file-validate] -P install_check.cmake

foreach(var BUILD_DIR SCRATCH)
  if(NOT ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()

set(prefix ${SCRATCH}/prefix)
set(user ${SCRATCH}/user)
file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${user})

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
                RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed (${rc}): ${err}")
endif()

file(GLOB_RECURSE engine ${prefix}/libkv3.so)
foreach(path bin/orvex-cli share/orvex/progs/bell.kvp share/orvex/MI/ideal2/qubits.dat share/orvex/help.htm
             share/orvex/MI/spin3/CZ12.MP share/orvex/progs/spin3/cz12.kvp share/orvex/spin3_chevron.png)
  if(NOT EXISTS ${prefix}/${path})
    message(FATAL_ERROR "not installed: ${path}")
  endif()
endforeach()
if(NOT engine)
  message(FATAL_ERROR "the engine library is not installed")
endif()

# The installed content is read, never written: the run works in the user's copy.
file(GLOB_RECURSE installed_before RELATIVE ${prefix} ${prefix}/*)

# The expected values: "# expect: x y z | x y z", one group per qubit.
file(STRINGS ${prefix}/share/orvex/progs/bell.kvp expect_line REGEX "^# expect:")
string(REGEX REPLACE "^# expect:[ ]*" "" expected "${expect_line}")
string(REGEX REPLACE "[ ]*\\|[ ]*" ";" expected "${expected}")

execute_process(
  COMMAND ${CMAKE_COMMAND} -E env --unset=ORVEX_HOME --unset=ORVEX_ENGINE
          HOME=${user} XDG_DATA_HOME=${user}/data
          ${prefix}/bin/orvex-cli run ${user}/data/orvex/progs/bell.kvp --set ideal2 --format csv
  WORKING_DIRECTORY ${SCRATCH}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "installed orvex-cli failed (${rc}):\n${out}\n${err}")
endif()
if(NOT EXISTS ${user}/data/orvex/MI/ideal2/qubits.dat OR NOT EXISTS ${user}/data/orvex/progs/bell.kvp
   OR NOT EXISTS ${user}/data/orvex/MI/spin3/CZ12.MP OR NOT EXISTS ${user}/data/orvex/progs/spin3/cz12.kvp
   OR NOT EXISTS ${user}/data/orvex/spin3_chevron.png)
  message(FATAL_ERROR "the user's directory ${user}/data/orvex was not seeded from share/orvex")
endif()

file(GLOB_RECURSE installed_after RELATIVE ${prefix} ${prefix}/*)
if(NOT installed_after STREQUAL installed_before)
  list(REMOVE_ITEM installed_after ${installed_before})
  message(FATAL_ERROR "the run wrote into the installed tree: ${installed_after}")
endif()

# csv: a header, then "qubit,x,y,z" per qubit.
string(REPLACE "\r" "" out "${out}")
string(REGEX MATCHALL "[^\n]+" rows "${out}")
list(POP_FRONT rows)
list(LENGTH expected nq)
list(LENGTH rows nrows)
if(NOT nrows EQUAL nq)
  message(FATAL_ERROR "expected ${nq} qubits, got:\n${out}")
endif()
foreach(q RANGE 1 ${nq})
  math(EXPR i "${q} - 1")
  list(GET rows ${i} row)
  list(GET expected ${i} want)
  string(REPLACE "," ";" got "${row}")
  list(POP_FRONT got)
  string(REGEX MATCHALL "[^ ]+" want "${want}")
  foreach(k RANGE 0 2)
    list(GET got ${k} g)
    list(GET want ${k} w)
    # Six decimals: the expected values are written to more places than the run needs.
    execute_process(COMMAND awk "BEGIN{d=(${g})-(${w}); if (d<0) d=-d; exit !(d<1e-6)}"
                    RESULT_VARIABLE close)
    if(NOT close EQUAL 0)
      message(FATAL_ERROR "qubit ${q}: got ${row}, expected ${want}")
    endif()
  endforeach()
endforeach()

if(VALIDATOR)
  foreach(entry ${prefix}/share/applications/orvex.desktop)
    if(EXISTS ${entry})
      execute_process(COMMAND ${VALIDATOR} ${entry} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
      if(NOT rc EQUAL 0 OR out OR err)
        message(FATAL_ERROR "${VALIDATOR} ${entry}:\n${out}${err}")
      endif()
    endif()
  endforeach()
endif()
message(STATUS "installed copy in ${prefix} ran bell.kvp as expected")
