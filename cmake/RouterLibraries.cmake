# libubox, libblobmsg_json, libubus and libuci: the real ones where they are installed, the stand-ins of
# compat/ elsewhere. Either way the rest of the tree links Router::ubox, Router::blobmsg_json, Router::ubus
# and Router::uci.

find_path(UBOX_INCLUDE_DIR libubox/uloop.h)
find_path(UBUS_INCLUDE_DIR libubus.h)
find_path(UCI_INCLUDE_DIR uci.h)
find_library(UBOX_LIBRARY ubox)
find_library(BLOBMSG_JSON_LIBRARY blobmsg_json)
find_library(UBUS_LIBRARY ubus)
find_library(UCI_LIBRARY uci)

function(router_import name library)
  add_library(Router::${name} SHARED IMPORTED GLOBAL)
  set_target_properties(Router::${name} PROPERTIES IMPORTED_LOCATION ${library} IMPORTED_NO_SONAME ON)
  target_include_directories(Router::${name} INTERFACE ${ARGN})
endfunction()

if(NOT IVARODE_STANDINS AND UBOX_INCLUDE_DIR AND UBUS_INCLUDE_DIR AND UCI_INCLUDE_DIR AND UBOX_LIBRARY
   AND BLOBMSG_JSON_LIBRARY AND UBUS_LIBRARY AND UCI_LIBRARY)
  set(IVARODE_HAVE_STANDINS OFF)
  message(STATUS "Bus and configuration libraries: the installed ones (${UBUS_LIBRARY})")
  router_import(ubox ${UBOX_LIBRARY} ${UBOX_INCLUDE_DIR})
  router_import(blobmsg_json ${BLOBMSG_JSON_LIBRARY} ${UBOX_INCLUDE_DIR})
  router_import(ubus ${UBUS_LIBRARY} ${UBUS_INCLUDE_DIR} ${UBOX_INCLUDE_DIR})
  router_import(uci ${UCI_LIBRARY} ${UCI_INCLUDE_DIR} ${UBOX_INCLUDE_DIR})
  # What runs on this machine finds them where the loader does not look by itself. An image's programs need not.
  if(IVARODE_LAB OR IVARODE_TESTS)
    foreach(library ${UBOX_LIBRARY} ${BLOBMSG_JSON_LIBRARY} ${UBUS_LIBRARY} ${UCI_LIBRARY})
      cmake_path(GET library PARENT_PATH folder)
      if(NOT folder IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES AND NOT folder IN_LIST CMAKE_INSTALL_RPATH)
        list(APPEND CMAKE_INSTALL_RPATH ${folder})
      endif()
    endforeach()
  endif()
else()
  set(IVARODE_HAVE_STANDINS ON)
  message(STATUS "Bus and configuration libraries: the stand-ins of compat/")
  add_subdirectory(compat)
endif()
