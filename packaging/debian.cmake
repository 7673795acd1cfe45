# The Debian packages, one for each component. Only scripts/package.sh makes them.
set(KESTOR_MAINTAINER "KESTOR developers <developers@kestor.invalid>" CACHE STRING "The maintainer in the packages")
set(release 1)
string(TIMESTAMP built "%a, %d %b %Y %H:%M:%S +0000" UTC)

configure_file(changelog.in changelog.Debian @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog COPYONLY)
add_custom_command(OUTPUT changelog.gz changelog.Debian.gz
  COMMAND gzip -9nkf changelog changelog.Debian
  DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian VERBATIM)
add_custom_target(kestor_changelogs ALL DEPENDS changelog.gz changelog.Debian.gz)

set(CPACK_COMPONENTS_ALL kestor libkestor1 libkestor-dev python3-kestor)
foreach(package ${CPACK_COMPONENTS_ALL})
  install(FILES copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${documents}/${package} COMPONENT ${package})
  string(TOUPPER ${package} component)
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${package})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${release})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${KESTOR_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(library "libkestor1 (= ${PROJECT_VERSION}-${release})")
set(CPACK_DEBIAN_KESTOR_PACKAGE_SECTION database)
set(CPACK_COMPONENT_KESTOR_DESCRIPTION "report-model repository: server and command line
A server that keeps the report models of a family of business applications as
files in one folder, and kestorctl, with which people and scripts use it.")
set(CPACK_DEBIAN_LIBKESTOR1_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBKESTOR1_PACKAGE_RECOMMENDS kestor)
set(CPACK_DEBIAN_LIBKESTOR1_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/triggers)
set(CPACK_COMPONENT_LIBKESTOR1_DESCRIPTION "report-model repository: client library
Programs read and write report models through this library, which starts the
server when it is needed.")
set(CPACK_DEBIAN_LIBKESTOR-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBKESTOR-DEV_PACKAGE_DEPENDS ${library})
set(CPACK_COMPONENT_LIBKESTOR-DEV_DESCRIPTION "report-model repository: files for building clients
Headers for C and C++ and what pkg-config and CMake need to find the library.
The package kestor has documents and examples.")
set(CPACK_DEBIAN_PYTHON3-KESTOR_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON3-KESTOR_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON3-KESTOR_PACKAGE_DEPENDS "python3:any, libkestor1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON3-KESTOR_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/python/postinst ${CMAKE_CURRENT_SOURCE_DIR}/python/prerm)
set(CPACK_COMPONENT_PYTHON3-KESTOR_DESCRIPTION "report-model repository: client for Python
A package over the client library: report models, field catalogues and models
of the first generation, as plain objects of Python.")
include(CPack)
