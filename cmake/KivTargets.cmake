# Settings every target of our own gets: strict warnings that fail the build.
function(kiv_target_defaults target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
endfunction()

# The libraries that other projects build on, in the order they were added (so that kiv.pc
# lists a library before the ones it needs).
set_property(GLOBAL PROPERTY KIV_PACKAGE_LIBRARIES "")

# A shared library of the host whose sources are every .cpp below its src/ folder and whose
# public headers are everything below its include/ folder.
#
# Such a library joins the installed package by itself: it is installed with a SONAME, its
# headers go to the prefix's include folder, and find_package(Kiv) gives it as Kiv::<Name>,
# where <Name> is the target's name without a leading "Kiv" (KivCore -> Kiv::Core, DataCore ->
# Kiv::DataCore, KivExport -> Kiv::Export). A new library therefore only calls this function
# and states its dependencies with target_link_libraries; a dependency found with
# find_package that appears in its public link interface must also be added to
# cmake/KivConfig.cmake.in as a find_dependency.
function(kiv_add_host_library target)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/src/*.cpp")
    add_library(${target} SHARED ${sources})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    kiv_target_defaults(${target})

    string(REGEX REPLACE "^Kiv" "" exportName "${target}")
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        EXPORT_NAME ${exportName})
    # The same name inside this build as for a project that finds the installed package.
    add_library(Kiv::${exportName} ALIAS ${target})

    install(TARGETS ${target} EXPORT KivTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            NAMELINK_COMPONENT Development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}/include/" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    set_property(GLOBAL APPEND PROPERTY KIV_PACKAGE_LIBRARIES ${target})
endfunction()

# The CMake package and kiv.pc, written once every library has been added.
function(kiv_install_package)
    include(CMakePackageConfigHelpers)
    set(packageDir "${CMAKE_INSTALL_LIBDIR}/cmake/Kiv")
    install(EXPORT KivTargets NAMESPACE Kiv:: DESTINATION ${packageDir})
    configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/KivConfig.cmake.in"
        "${PROJECT_BINARY_DIR}/KivConfig.cmake" INSTALL_DESTINATION ${packageDir}
        PATH_VARS KIV_PLUGIN_INSTALL_DIR)
    write_basic_package_version_file("${PROJECT_BINARY_DIR}/KivConfigVersion.cmake"
        COMPATIBILITY SameMajorVersion)
    install(FILES "${PROJECT_BINARY_DIR}/KivConfig.cmake"
        "${PROJECT_BINARY_DIR}/KivConfigVersion.cmake" DESTINATION ${packageDir})

    # pkg-config lists the libraries, the most dependent first, as the linker wants them.
    get_property(libraries GLOBAL PROPERTY KIV_PACKAGE_LIBRARIES)
    list(REVERSE libraries)
    set(KIV_PC_LIBS "")
    foreach(library IN LISTS libraries)
        string(APPEND KIV_PC_LIBS " -l${library}")
    endforeach()
    # The prefix is the one installed to ("cmake --install --prefix" may name another than the
    # configured one), so kiv.pc is written at install time; the rest is relative to it.
    set(KIV_PC_PREFIX_AT "@KIV_PC_PREFIX@")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/kiv.pc.in" "${PROJECT_BINARY_DIR}/kiv.pc.in" @ONLY)
    install(CODE "
        set(KIV_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(\"${PROJECT_BINARY_DIR}/kiv.pc.in\" \"${PROJECT_BINARY_DIR}/kiv.pc\" @ONLY)")
    install(FILES "${PROJECT_BINARY_DIR}/kiv.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()
