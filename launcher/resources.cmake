# What the executable carries beside its code: the manifest with the product's version, and an integrator's icon.
set(LAUNCHER_ICON "" CACHE FILEPATH "An .ico file for launcher.exe to show; empty: none, Windows shows its own")

file(STRINGS version.h version_line REGEX "LAUNCHER_VERSION_TEXT")
string(REGEX MATCH "[0-9]+\\.[0-9]+\\.[0-9]+" LAUNCHER_VERSION "${version_line}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS version.h)

# Found by the resource compiler as "launcher_resources/...": a path of the user's own, with spaces maybe, would have to
# be quoted for it in a way that differs from release to release.
set(resources ${CMAKE_CURRENT_BINARY_DIR}/launcher_resources)
configure_file(launcher.manifest ${resources}/launcher.manifest @ONLY)
target_include_directories(launcher PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
set(resource_files ${CMAKE_CURRENT_SOURCE_DIR}/version.h ${resources}/launcher.manifest)

if(LAUNCHER_ICON)
  get_filename_component(icon "${LAUNCHER_ICON}" ABSOLUTE BASE_DIR ${CMAKE_SOURCE_DIR})
  if(NOT EXISTS "${icon}")
    message(FATAL_ERROR "LAUNCHER_ICON: there is no ${icon}")
  endif()
  configure_file("${icon}" ${resources}/launcher.ico COPYONLY)
  list(APPEND resource_files ${resources}/launcher.ico)
  set_property(SOURCE launcher.rc PROPERTY COMPILE_DEFINITIONS LAUNCHER_HAS_ICON)
endif()
set_property(SOURCE launcher.rc PROPERTY OBJECT_DEPENDS "${resource_files}")
