# Installation and packaging: the plug-in with its symlink, the platform's
# libraries, the host component, the public headers (plug-in interfaces,
# generated topic headers and host headers, platform; never a `detail` or
# `src` header), the tools, a CMake package "lumotypes-krin" with namespaced
# imported targets, pkg-config files, and a Debian package through CPack.
#
#   cmake --install build --prefix /opt/lumo
#   find_package(lumotypes-krin 0.9 REQUIRED)    # with CMAKE_PREFIX_PATH=/opt/lumo
#   target_link_libraries(myhost PRIVATE lumotypes-krin::host)
#   $<TARGET_FILE:lumotypes-krin::plugin> is the plug-in the host component loads.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(LUMO_PACKAGE lumotypes-krin)
set(LUMO_CONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/${LUMO_PACKAGE}")
set(LUMO_SHARE_DIR "${CMAKE_INSTALL_DATADIR}/${LUMO_PACKAGE}")
set(LUMO_COMPAT_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/${LUMO_PACKAGE}/compat")

# --- Where installed binaries find their libraries: beside them, or in lib/ from bin/.
set_target_properties(dabo dabo-common dabo-krin lumotypes-host lumotypes-krin-plugin PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(lumo-demo krin-tap krin-pub krin-record krin-play PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

# --- Include directories of the installed targets.
target_include_directories(dabo PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_include_directories(dabo-common PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_include_directories(dabo-krin PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# The topic headers and the plug-in's public interfaces, for hosts; header-only.
add_library(lumotypes-headers INTERFACE)
target_include_directories(lumotypes-headers INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(lumotypes-headers INTERFACE dabo)
target_compile_features(lumotypes-headers INTERFACE cxx_std_17)
set_target_properties(lumotypes-headers PROPERTIES EXPORT_NAME lumotypes)

set(lumo_exported_targets dabo dabo-common dabo-krin lumo_zmq lumotypes-headers lumotypes-host)
if(TARGET lumo_otel_api)
  get_target_property(lumo_otel_links lumo_otel_api INTERFACE_LINK_LIBRARIES)
  if(NOT lumo_otel_links)
    # The stand-in trace API goes with the package, apart from a real one's path.
    target_include_directories(lumo_otel_api SYSTEM INTERFACE $<INSTALL_INTERFACE:${LUMO_COMPAT_INCLUDE_DIR}>)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/compat/opentelemetry-api/include/"
            DESTINATION "${LUMO_COMPAT_INCLUDE_DIR}" COMPONENT dev)
  endif()
  list(APPEND lumo_exported_targets lumo_otel_api)
endif()
set_target_properties(lumo_zmq PROPERTIES EXPORT_NAME zmq)
set_target_properties(lumo_otel_api PROPERTIES EXPORT_NAME otel_api)

# --- Libraries and programs.
install(TARGETS ${lumo_exported_targets}
  EXPORT lumotypes-krin-targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
# The plug-in is loaded at run time, never linked, so it is not an exported
# target; the package configuration names it as an imported module instead.
install(TARGETS lumotypes-krin-plugin
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT runtime)
install(TARGETS lumo-demo krin-tap krin-pub krin-record krin-play RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
install(FILES "${PROJECT_SOURCE_DIR}/tools/demo/lumo-demo.log4cplus.properties"
        DESTINATION "${LUMO_SHARE_DIR}" COMPONENT tools)

# --- Public headers.
install(FILES
  dabo/ps/DataEntity.h
  dabo/ps/DataEntityFactory.h
  dabo/ps/DataEvent.h
  dabo/ps/DataEventFilter.h
  dabo/ps/InstanceEvent.h
  dabo/ps/InstancePublisher.h
  dabo/ps/InstanceState.h
  dabo/ps/LoanedDataEntity.h
  dabo/ps/MrvSubscriber.h
  dabo/ps/Publisher.h
  dabo/ps/Subscriber.h
  dabo/ps/Subscription.h
  dabo/ps/Traceable.h
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/dabo/ps" COMPONENT dev)
install(FILES dabo/utility/shared_vector.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/dabo/utility" COMPONENT dev)
# The host component's headers; its generated topic traits (lumotypes/host/Topics.h)
# go with the other generated headers below.
install(DIRECTORY host/include/lumotypes/host/ "${PROJECT_BINARY_DIR}/host/include/lumotypes/host/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/lumotypes/host" COMPONENT dev FILES_MATCHING PATTERN "*.h")
# Generated topic classes, enumerations, topic list, export macro and host
# traits; the binding classes under krin/ are the plug-in's own.
install(DIRECTORY "${PROJECT_BINARY_DIR}/lumotypes/generated/lumotypes/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/lumotypes" COMPONENT dev
        FILES_MATCHING PATTERN "*.h" PATTERN "krin" EXCLUDE)
foreach(platform_library libdabo libdabo-common libdabo-krin)
  # The runtime's internals (detail/) stay inside; hosts reach the runtime through the host component.
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/platform/${platform_library}/include/"
          DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "detail" EXCLUDE)
endforeach()
install(FILES
  "${PROJECT_BINARY_DIR}/platform/libdabo-krin/generated/krin.pb.h"
  "${PROJECT_BINARY_DIR}/platform/libdabo-krin/generated/daboTypes.pb.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev)
install(FILES
  lumotypes/src/Lumotypes.proto
  platform/libdabo-krin/proto/krin.proto
  platform/libdabo-krin/proto/daboTypes.proto
  DESTINATION "${LUMO_SHARE_DIR}/proto" COMPONENT dev)

# --- CMake package.
install(EXPORT lumotypes-krin-targets
  NAMESPACE lumotypes-krin::
  FILE lumotypes-krin-targets.cmake
  DESTINATION "${LUMO_CONFIG_DIR}" COMPONENT dev)
file(RELATIVE_PATH lumo_config_to_prefix "/prefix/${LUMO_CONFIG_DIR}" "/prefix")
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/${LUMO_PACKAGE}-config.cmake" @ONLY CONTENT [=[
# Package lumotypes-krin: the type-support plug-in of the lumotypes topics for
# the Krin transport, its host platform and the topic headers.
#
# Imported targets:
#   lumotypes-krin::host         the host component: loads the plug-in, typed factories, topic traits,
#                                runtime set-up, payload bytes, property registry (links the rest)
#   lumotypes-krin::lumotypes    topic classes, enumerations, publish/subscribe interfaces (headers)
#   lumotypes-krin::dabo         middleware core: properties, QoS, exceptions
#   lumotypes-krin::dabo-common  utilities: hashing, properties, clocks, identifiers, tracing
#   lumotypes-krin::dabo-krin    the transport runtime (created through lumotypes-krin::host)
#   lumotypes-krin::plugin       the plug-in, a module to dlopen (never to link)
# Variables:
#   lumotypes-krin_PLUGIN        full path of the plug-in
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(Protobuf)
find_dependency(PkgConfig)
if(NOT TARGET PkgConfig::ZMQ)
  pkg_check_modules(ZMQ REQUIRED IMPORTED_TARGET libzmq)
endif()
if(NOT TARGET PkgConfig::LOG4CPLUS)
  pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus)
endif()
if(NOT TARGET PkgConfig::UUID)
  pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
endif()

include("${CMAKE_CURRENT_LIST_DIR}/lumotypes-krin-targets.cmake")

get_filename_component(lumotypes_krin_prefix "${CMAKE_CURRENT_LIST_DIR}/@lumo_config_to_prefix@" ABSOLUTE)
set(lumotypes-krin_PLUGIN "${lumotypes_krin_prefix}/@CMAKE_INSTALL_LIBDIR@/libdabo-krin-lumotypes.so.0.9")
if(NOT TARGET lumotypes-krin::plugin)
  add_library(lumotypes-krin::plugin MODULE IMPORTED)
  set_target_properties(lumotypes-krin::plugin PROPERTIES IMPORTED_LOCATION "${lumotypes-krin_PLUGIN}")
endif()
unset(lumotypes_krin_prefix)
]=])
write_basic_package_version_file("${PROJECT_BINARY_DIR}/${LUMO_PACKAGE}-config-version.cmake"
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/${LUMO_PACKAGE}-config.cmake"
  "${PROJECT_BINARY_DIR}/${LUMO_PACKAGE}-config-version.cmake"
  DESTINATION "${LUMO_CONFIG_DIR}" COMPONENT dev)

# --- pkg-config: the platform (dabo-krin) and the plug-in's headers and path (lumotypes-krin).
file(RELATIVE_PATH lumo_pc_to_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/pkgconfig/dabo-krin.pc" @ONLY CONTENT [=[
prefix=${pcfiledir}/@lumo_pc_to_prefix@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=${prefix}/@CMAKE_INSTALL_INCLUDEDIR@

Name: dabo-krin
Description: Host platform of the lumotypes-krin plug-in: middleware core, utilities and the Krin transport runtime
Version: @PROJECT_VERSION@
Requires: libzmq log4cplus protobuf
Libs: -L${libdir} -ldabo-krin -ldabo-common -ldabo
Cflags: -I${includedir} -I${includedir}/lumotypes-krin/compat
]=])
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/pkgconfig/lumotypes-krin.pc" @ONLY CONTENT [=[
prefix=${pcfiledir}/@lumo_pc_to_prefix@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=${prefix}/@CMAKE_INSTALL_INCLUDEDIR@
plugin=${libdir}/libdabo-krin-lumotypes.so.0.9

Name: lumotypes-krin
Description: Topic headers and host component of lumotypes, and the path of its Krin type-support plug-in (pkg-config --variable=plugin)
Version: @PROJECT_VERSION@
Requires: dabo-krin
Libs: -L${libdir} -llumotypes-host -ldl
Cflags: -I${includedir}
]=])
install(FILES "${PROJECT_BINARY_DIR}/pkgconfig/dabo-krin.pc" "${PROJECT_BINARY_DIR}/pkgconfig/lumotypes-krin.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)

# --- Debian package: cpack -G DEB in the build directory.
set(CPACK_PACKAGE_NAME "${LUMO_PACKAGE}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_VENDOR "lumotypes-krin")
set(CPACK_PACKAGE_CONTACT "lumotypes-krin maintainers <lumotypes-krin@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Krin type-support plug-in of the lumotypes topics, host platform, tools and headers")
set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "libs")
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "libprotobuf32 (>= 3.21), libzmq5 (>= 4.3), liblog4cplus-2.0.5, liburiparser1, libuuid1, libprotobuf-dev, libzmq3-dev, cppzmq-dev, liblog4cplus-dev, uuid-dev, pkg-config")
include(CPack)
