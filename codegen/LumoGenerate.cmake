# lumo_generate_bindings(<target>
#     PROTO <schema.proto>            schema of the interface package
#     TYPE_HASHES <table.txt>         type hash of every topic, one "Topic 0xHHHHHHHH" per line
#     IMPORT_DIRS <dir>...            import roots; the schema's own directory comes first
#     OUT_DIR <dir>                   where the generated files go (in the build tree)
#     [EXPORT_MACRO <macro> EXPORT_HEADER <header>]
#     [GENERATED_SOURCES <var>])      receives the .cpp files to compile into the plug-in
#
# Runs protoc-gen-lumo at build time and yields <target>, an interface library
# that puts OUT_DIR on the include path of its users and makes them wait for
# the generation. The set of per-topic headers follows from the schema; the
# fixed-name files below are the ones the build tracks.
function(lumo_generate_bindings target)
  cmake_parse_arguments(ARG "" "PROTO;TYPE_HASHES;OUT_DIR;EXPORT_MACRO;EXPORT_HEADER;GENERATED_SOURCES" "IMPORT_DIRS" ${ARGN})
  get_filename_component(proto "${ARG_PROTO}" ABSOLUTE)
  get_filename_component(proto_dir "${proto}" DIRECTORY)
  get_filename_component(proto_name "${proto}" NAME)
  get_filename_component(base "${proto}" NAME_WE)

  # The header directory is the last component of the schema's package.
  file(STRINGS "${proto}" package_line REGEX "^[ \t]*package[ \t]+[A-Za-z0-9_.]+")
  string(REGEX MATCH "package[ \t]+([A-Za-z0-9_.]+)" package_line "${package_line}")
  string(REGEX REPLACE "^.*\\." "" ns "${CMAKE_MATCH_1}")

  get_filename_component(type_hashes "${ARG_TYPE_HASHES}" ABSOLUTE)
  set(options "type_hashes=${type_hashes}")
  if(ARG_EXPORT_MACRO)
    string(APPEND options ",export_macro=${ARG_EXPORT_MACRO},export_header=${ARG_EXPORT_HEADER}")
  endif()
  set(import_args -I "${proto_dir}")
  foreach(dir IN LISTS ARG_IMPORT_DIRS)
    list(APPEND import_args -I "${dir}")
  endforeach()

  set(outputs
    "${ARG_OUT_DIR}/${ns}/Enums.h"
    "${ARG_OUT_DIR}/${ns}/Topics.h"
    "${ARG_OUT_DIR}/${ns}/Fields.h"
    "${ARG_OUT_DIR}/${ns}/host/Topics.h"
    "${ARG_OUT_DIR}/${ns}/${base}.h"
    "${ARG_OUT_DIR}/${ns}/krin/${base}Impl.h")
  set(sources
    "${ARG_OUT_DIR}/${ns}/krin/${base}Impl.cpp"
    "${ARG_OUT_DIR}/${ns}/krin/${base}DescriptorExport.cpp")

  add_custom_command(
    OUTPUT ${outputs} ${sources}
    COMMAND ${CMAKE_COMMAND} -E make_directory "${ARG_OUT_DIR}"
    COMMAND protobuf::protoc
            --plugin=protoc-gen-lumo=$<TARGET_FILE:protoc-gen-lumo>
            "--lumo_out=${options}:${ARG_OUT_DIR}"
            ${import_args} "${proto_name}"
    DEPENDS "${proto}" "${type_hashes}" protoc-gen-lumo
    WORKING_DIRECTORY "${proto_dir}"
    COMMENT "Generating the ${ns} topic classes and bindings from ${proto_name}"
    VERBATIM)

  add_custom_target(${target}_generate DEPENDS ${outputs} ${sources})
  add_library(${target} INTERFACE)
  target_include_directories(${target} INTERFACE "${ARG_OUT_DIR}")
  add_dependencies(${target} ${target}_generate)
  if(ARG_GENERATED_SOURCES)
    set(${ARG_GENERATED_SOURCES} ${sources} PARENT_SCOPE)
  endif()
endfunction()
