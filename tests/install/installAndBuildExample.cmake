# Run by ctest: cmake -DLUMO_BUILD_DIR=... -DLUMO_EXAMPLE_DIR=... -DLUMO_WORK_DIR=... -DLUMO_LIBDIR=... -P this
cmake_minimum_required(VERSION 3.25)

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${out}\n${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

function(expect_file path)
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "the installation lacks ${path}")
  endif()
endfunction()

set(prefix "${LUMO_WORK_DIR}/prefix")
set(example_build "${LUMO_WORK_DIR}/example-build")
file(REMOVE_RECURSE "${LUMO_WORK_DIR}")

run_step("install" "${CMAKE_COMMAND}" --install "${LUMO_BUILD_DIR}" --prefix "${prefix}")

# What the package promises to hold.
set(lib "${prefix}/${LUMO_LIBDIR}")
expect_file("${lib}/libdabo-krin-lumotypes.so.0.9")
expect_file("${lib}/libdabo-krin-lumotypes.so")
if(NOT IS_SYMLINK "${lib}/libdabo-krin-lumotypes.so")
  message(FATAL_ERROR "libdabo-krin-lumotypes.so is not a symlink to the versioned plug-in")
endif()
foreach(platform_library dabo dabo-common dabo-krin lumotypes-host)
  expect_file("${lib}/lib${platform_library}.so")
endforeach()
foreach(header lumotypes/Lumotypes.h lumotypes/FieldStablizationTopicIn.h lumotypes/Export.h dabo/ps/Publisher.h
               dabo/ps/Subscriber.h dabo/utility/shared_vector.h lumotypes/host/Plugin.h lumotypes/host/Topics.h
               lumotypes/host/Factories.h lumotypes/host/Export.h krin.pb.h)
  expect_file("${prefix}/include/${header}")
endforeach()
# Implementation headers stay in the source tree: hosts see neither the
# runtime's nor the plug-in's internals.
file(GLOB_RECURSE installed_headers RELATIVE "${prefix}/include" "${prefix}/include/*")
foreach(header IN LISTS installed_headers)
  if(header MATCHES "(^|/)(detail|src)/")
    message(FATAL_ERROR "the installation holds the implementation header include/${header}")
  endif()
endforeach()
expect_file("${lib}/cmake/lumotypes-krin/lumotypes-krin-config.cmake")
expect_file("${lib}/cmake/lumotypes-krin/lumotypes-krin-config-version.cmake")
expect_file("${lib}/pkgconfig/lumotypes-krin.pc")
expect_file("${lib}/pkgconfig/dabo-krin.pc")
foreach(tool lumo-demo krin-tap krin-pub krin-scope krin-record krin-play)
  expect_file("${prefix}/bin/${tool}")
endforeach()

# The installed tools run from the prefix and find the installed plug-in.
run_step("installed krin-tap --help" "${prefix}/bin/krin-tap" --help)
string(FIND "${step_output}" "${lib}/libdabo-krin-lumotypes.so.0.9" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the installed krin-tap does not default to the installed plug-in:\n${step_output}")
endif()
# The scope's page is inside the program: nothing beside it is needed.
run_step("installed krin-scope --help" "${prefix}/bin/krin-scope" --help)
string(FIND "${step_output}" "${lib}/libdabo-krin-lumotypes.so.0.9" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the installed krin-scope does not default to the installed plug-in:\n${step_output}")
endif()

# pkg-config names the plug-in where it was installed.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} "${lib}/pkgconfig")
  run_step("pkg-config" "${PKG_CONFIG}" --variable=plugin lumotypes-krin)
  string(STRIP "${step_output}" plugin)
  if(NOT EXISTS "${plugin}")
    message(FATAL_ERROR "pkg-config names the plug-in ${plugin}, which does not exist")
  endif()
  run_step("pkg-config --libs" "${PKG_CONFIG}" --cflags --libs lumotypes-krin)
endif()

# The example, built against the package alone.
set(launcher "")
find_program(CCACHE ccache)
if(CCACHE)
  set(launcher "-DCMAKE_CXX_COMPILER_LAUNCHER=${CCACHE}")
endif()
run_step("configure example" "${CMAKE_COMMAND}" -S "${LUMO_EXAMPLE_DIR}" -B "${example_build}"
         "-DCMAKE_PREFIX_PATH=${prefix}" ${launcher})
run_step("build example" "${CMAKE_COMMAND}" --build "${example_build}")

# A port below the ephemeral range; another one if something else holds it.
foreach(attempt RANGE 1 5)
  string(RANDOM LENGTH 4 ALPHABET 0123456789 digits)
  math(EXPR port "20000 + ${digits}")
  execute_process(COMMAND "${example_build}/lumo-example-host" "" "${port}"
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(result EQUAL 0)
    message(STATUS "example host: ${out}")
    if(NOT out MATCHES "received RefPos refPos=\\(320,240\\) box=16x12")
      message(FATAL_ERROR "the example host printed something else:\n${out}")
    endif()
    return()
  endif()
  message(STATUS "example host on port ${port} failed (${result}): ${out}${err}")
endforeach()
message(FATAL_ERROR "the example host never received its sample")
