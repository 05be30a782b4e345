# Finds the libprotobuf that tools/protobuf.sh built, and defines the target ryl_protobuf: static, position-independent,
# hidden. What links it keeps protobuf's names to itself; a module adds a version script of its own.
include(FindPackageHandleStandardArgs)

execute_process(
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/../tools/protobuf.sh prefix
  OUTPUT_VARIABLE RylProtobuf_PREFIX OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)

set(RylProtobuf_LIBRARY ${RylProtobuf_PREFIX}/lib/libprotobuf.a)
if(NOT EXISTS ${RylProtobuf_LIBRARY})
  unset(RylProtobuf_LIBRARY)
endif()
find_package_handle_standard_args(RylProtobuf
  REQUIRED_VARS RylProtobuf_LIBRARY
  REASON_FAILURE_MESSAGE "./dev deps builds it")

if(RylProtobuf_FOUND AND NOT TARGET ryl_protobuf)
  add_library(ryl_protobuf STATIC IMPORTED GLOBAL)
  set_target_properties(ryl_protobuf PROPERTIES
    IMPORTED_LOCATION ${RylProtobuf_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${RylProtobuf_PREFIX}/include
    INTERFACE_COMPILE_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>
    # A program need not hide anything, and a fuzzer must not hide its runtime from the libraries that it loads.
    INTERFACE_LINK_OPTIONS "$<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>>:LINKER:--exclude-libs,ALL>"
    INTERFACE_LINK_LIBRARIES Threads::Threads)
endif()
