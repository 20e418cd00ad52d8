# Every dependency comes from a Debian package installed by scripts/setup.sh.
find_package(Threads REQUIRED)
find_package(Protobuf 3.21 REQUIRED)
find_package(PkgConfig REQUIRED)

pkg_check_modules(ZMQ REQUIRED IMPORTED_TARGET libzmq)
find_path(CPPZMQ_INCLUDE_DIR zmq.hpp REQUIRED)
add_library(lumo_zmq INTERFACE)
target_link_libraries(lumo_zmq INTERFACE PkgConfig::ZMQ)
target_include_directories(lumo_zmq SYSTEM INTERFACE ${CPPZMQ_INCLUDE_DIR})

pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus)
pkg_check_modules(URIPARSER REQUIRED IMPORTED_TARGET liburiparser)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# The runtime's metrics page.
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

if(LUMO_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(LUMO_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
