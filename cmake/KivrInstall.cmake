# What an installation holds: the library with its public headers, a CMake package and a pkg-config
# file, and, where they are built, the emulator with its headers and kivctl.

include(CMakePackageConfigHelpers)
set(KIVR_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kivr)
# A development machine finds the emulator beside the library, and liblog where the build found it.
# A device has its own ways to find libraries.
if(NOT CMAKE_CROSSCOMPILING)
    file(RELATIVE_PATH libdirFromBindir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    foreach(target IN ITEMS kivr kivr_emulator kivctl)
        if(TARGET ${target})
            set_target_properties(${target} PROPERTIES
                INSTALL_RPATH "$ORIGIN;$ORIGIN/${libdirFromBindir}" INSTALL_RPATH_USE_LINK_PATH ON)
        endif()
    endforeach()
endif()

install(TARGETS kivr EXPORT kivr LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET kivr_emulator)
    set_target_properties(kivr_emulator PROPERTIES EXPORT_NAME emulator)
    install(TARGETS kivr_emulator EXPORT kivr LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
if(TARGET kivctl)
    install(TARGETS kivctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT kivr FILE kivrTargets.cmake NAMESPACE kivr:: DESTINATION ${KIVR_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kivrConfig.cmake.in
    ${PROJECT_BINARY_DIR}/kivrConfig.cmake INSTALL_DESTINATION ${KIVR_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kivrConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kivrConfig.cmake ${PROJECT_BINARY_DIR}/kivrConfigVersion.cmake
        DESTINATION ${KIVR_PACKAGE_DIR})

file(RELATIVE_PATH KIVR_PREFIX_FROM_PC
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
# kivr_install_pc(target name description folder): the pkg-config file of the target, whose headers
# are in that folder.
function(kivr_install_pc target KIVR_PC_NAME KIVR_PC_DESCRIPTION KIVR_PC_FOLDER)
    set(file ${PROJECT_BINARY_DIR}/${KIVR_PC_NAME}.pc)
    set(KIVR_PC_LIBRARY ${target})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/kivr.pc.in ${file} @ONLY)
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
kivr_install_pc(kivr kivr "Manages the data-connection profiles of a phone's modem" kivr)
if(TARGET kivr_emulator)
    kivr_install_pc(kivr_emulator kivr-emulator "The modem that libkivr runs on without a phone"
                    kivr_emulator)
endif()
