# Installs the freshly built library into a scratch prefix, then configures,
# builds and runs tests/consumer against that prefix only.
set(work "${LUMORA_BUILD_DIR}/package-test")
file(REMOVE_RECURSE "${work}")
set(prefix "${work}/prefix")

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGV}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install "${LUMORA_BUILD_DIR}" --prefix "${prefix}")

# The README's usage example is compiled into the consumer as it stands, so
# that it cannot drift from the library: its #include lines go to the top of
# a file, the rest into the body of a function that returns its `v`.
file(READ "${LUMORA_SOURCE_DIR}/README.md" readme)
string(FIND "${readme}" "## Using it" at)
string(SUBSTRING "${readme}" ${at} -1 readme)
string(FIND "${readme}" "```cpp\n" start)
if(start EQUAL -1)
  message(FATAL_ERROR "README.md has no C++ usage example under 'Using it'")
endif()
math(EXPR start "${start} + 7")
string(SUBSTRING "${readme}" ${start} -1 readme)
string(FIND "${readme}" "```" stop)
string(SUBSTRING "${readme}" 0 ${stop} example)
string(REGEX MATCHALL "#include[^\n]*" includes "${example}")
string(REGEX REPLACE "#include[^\n]*" "" body "${example}")
list(JOIN includes "\n" includes)
file(WRITE "${work}/example/readme_example.h"
  "// Generated from README.md by the packaging test.\n${includes}\n\n"
  "inline double readmeExample() {\n${body}\n  return v;\n}\n")
run(${CMAKE_COMMAND} -S "${LUMORA_SOURCE_DIR}/tests/consumer" -B "${work}/build"
    -G "${LUMORA_GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${prefix}"
    "-DCMAKE_CXX_COMPILER=${LUMORA_CXX_COMPILER}"
    "-DCMAKE_CXX_FLAGS=${LUMORA_CXX_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${LUMORA_LINKER_FLAGS}"
    "-DCMAKE_BUILD_TYPE=${LUMORA_BUILD_TYPE}"
    "-DREADME_EXAMPLE_DIR=${work}/example")
run(${CMAKE_COMMAND} --build "${work}/build")
run("${work}/build/consumer")
if(NOT last_output MATCHES "readme example: [-0-9.e]+")
  message(FATAL_ERROR "the README example did not run:\n${last_output}")
endif()
if(NOT last_output MATCHES "keyTangent -global -inTangentType spline -outTangentType spline -weightedTangents false;")
  message(FATAL_ERROR "consumer printed an unexpected preference line:\n${last_output}")
endif()

# The pkg-config file must point at the same installation.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} "${prefix}/lib/pkgconfig:${prefix}/lib64/pkgconfig")
  file(GLOB pcfiles "${prefix}/lib*/pkgconfig/lumora.pc" "${prefix}/lib/*/pkgconfig/lumora.pc")
  list(GET pcfiles 0 pcfile)
  get_filename_component(pcdir "${pcfile}" DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} "${pcdir}")
  run(${PKG_CONFIG} --cflags --libs lumora)
  if(NOT last_output MATCHES "-llumora")
    message(FATAL_ERROR "pkg-config gave: ${last_output}")
  endif()
endif()
message(STATUS "consumer output: ${last_output}")
