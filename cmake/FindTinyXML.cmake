# Finds TinyXML (libtinyxml-dev) and provides the imported target TinyXML::TinyXML.
# Installed with the Quorvane package so that find_package(Quorvane) can find it too; the
# search uses pkg-config when it is there and the ordinary search paths otherwise, so no
# absolute path of the machine that built Quorvane is carried along.
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(PC_TinyXML QUIET tinyxml)
endif()
find_path(TinyXML_INCLUDE_DIR tinyxml.h HINTS ${PC_TinyXML_INCLUDE_DIRS})
find_library(TinyXML_LIBRARY NAMES tinyxml HINTS ${PC_TinyXML_LIBRARY_DIRS})

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(TinyXML REQUIRED_VARS TinyXML_LIBRARY TinyXML_INCLUDE_DIR
  VERSION_VAR PC_TinyXML_VERSION)
mark_as_advanced(TinyXML_INCLUDE_DIR TinyXML_LIBRARY)

if(TinyXML_FOUND AND NOT TARGET TinyXML::TinyXML)
  add_library(TinyXML::TinyXML UNKNOWN IMPORTED)
  set_target_properties(TinyXML::TinyXML PROPERTIES
    IMPORTED_LOCATION "${TinyXML_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${TinyXML_INCLUDE_DIR}")
endif()
