# Debian packages with cpack -G DEB, one per install component. Configure with
# -DCMAKE_INSTALL_PREFIX=/usr so that the library lands in Debian's multiarch folder.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qbcode-hexagon-recognition)
set(CPACK_PACKAGE_VENDOR "qbcode")
set(CPACK_PACKAGE_CONTACT "qbcode developers <qbcode@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Reader of printed hexagonal dot codes in grey images")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
if(TARGET qbcode_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
else()
  set(QBCODE_PYTHON_MINOR 0)
endif()
# Dependencies on Debian's OpenCV libraries come from dpkg-shlibdeps; between our own packages
# from the component graph, at this exact version.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_BINARY_DIR}/_CPack_Packages/Linux/DEB/${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-Linux/runtime/usr/${CMAKE_INSTALL_LIBDIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqbcode-hexagon-recognition${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Reader of printed hexagonal dot codes: shared library\n The library and its default parameter file.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqbcode-hexagon-recognition-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libopencv-dev (>= 4.6)")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "Reader of printed hexagonal dot codes: development files\n Headers, pkg-config and CMake package files.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qbcode-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "Reader of printed hexagonal dot codes: the qbcode program\n Reads, renders and grades codes from the command line.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qbcode)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
# The module's file name carries the interpreter's version: it loads in that one only.
math(EXPR python_next "${QBCODE_PYTHON_MINOR} + 1")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "python3 (>= 3.${QBCODE_PYTHON_MINOR}), python3 (<< 3.${python_next}), python3-numpy")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
  "Reader of printed hexagonal dot codes: Python module\n qbcode.read, read_all, render and grade on numpy arrays.")
include(CPack)
