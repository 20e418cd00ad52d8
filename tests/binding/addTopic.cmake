# Adding a topic, rehearsed in a scratch directory: the package's schema with a
# twelfth message, run through protoc-gen-lumo as the build runs it.
#   - with its line in the type hash table, the generated topic list and the
#     host component's traits carry the new topic, with its hash;
#   - without it, generation fails and says which line to add to which file.
#
# Run by ctest: cmake -DPROTOC=... -DGENERATOR=... -DSCHEMA=... -DTYPE_HASHES=...
#                     -DIMPORT_DIR=... -DWORK_DIR=... -P addTopic.cmake
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}/schema" "${WORK_DIR}/with-hash" "${WORK_DIR}/without-hash")
file(READ "${SCHEMA}" schema)
file(WRITE "${WORK_DIR}/schema/Lumotypes.proto" "${schema}
message ProbeTopic {
  required int32 probeValue = 1;
  required TelescopeSystem system = 2;
}
")
file(READ "${TYPE_HASHES}" hashes)
file(WRITE "${WORK_DIR}/schema/typeHashes.txt" "${hashes}ProbeTopic                   0x5EED1234\n")
file(WRITE "${WORK_DIR}/schema/typeHashesWithoutProbe.txt" "${hashes}")

function(generate table out result_var error_var)
  execute_process(
    COMMAND "${PROTOC}" "--plugin=protoc-gen-lumo=${GENERATOR}" "--lumo_out=type_hashes=${table},export_macro=LUMOTYPES_EXPORT,export_header=lumotypes/Export.h:${out}"
            -I "${WORK_DIR}/schema" -I "${IMPORT_DIR}" Lumotypes.proto
    WORKING_DIRECTORY "${WORK_DIR}/schema"
    RESULT_VARIABLE result ERROR_VARIABLE error OUTPUT_QUIET)
  set(${result_var} "${result}" PARENT_SCOPE)
  set(${error_var} "${error}" PARENT_SCOPE)
endfunction()

function(expect_text file text)
  file(READ "${file}" content)
  string(FIND "${content}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${file} lacks the new topic: expected\n  ${text}")
  endif()
endfunction()

generate("${WORK_DIR}/schema/typeHashes.txt" "${WORK_DIR}/with-hash" result error)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the schema with a new topic and its hash did not generate:\n${error}")
endif()
set(generated "${WORK_DIR}/with-hash/lumotypes")
expect_text("${generated}/Topics.h" "X(ProbeTopic)")
expect_text("${generated}/Topics.h" "X(ProbeTopic, 0x5EED1234u)")
expect_text("${generated}/host/Topics.h" "struct TopicTraits<::lumotypes::ProbeTopic> {")
expect_text("${generated}/host/Topics.h" "static constexpr std::uint32_t typeHash = 0x5EED1234u;")
expect_text("${generated}/host/Topics.h" "\"generated_krin_MrvSubscriber_lumotypes_ProbeTopic\"")
expect_text("${generated}/host/Topics.h" ", \"ProbeTopic\"};")
expect_text("${generated}/host/Topics.h" "visit(TopicTag<::lumotypes::ProbeTopic>{});")
expect_text("${generated}/ProbeTopic.h" "class LUMOTYPES_EXPORT ProbeTopic")

generate("${WORK_DIR}/schema/typeHashesWithoutProbe.txt" "${WORK_DIR}/without-hash" result error)
if(result EQUAL 0)
  message(FATAL_ERROR "a topic without a type hash was generated")
endif()
set(wanted "topic ProbeTopic has no type hash; add the line 'ProbeTopic 0xHHHHHHHH' with its published type hash to ${WORK_DIR}/schema/typeHashesWithoutProbe.txt")
string(FIND "${error}" "${wanted}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the refusal does not say what to add:\n${error}")
endif()
message(STATUS "a new topic is generated with its hash, and refused without it: ${error}")
