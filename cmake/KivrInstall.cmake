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

target_compile_features(kivr INTERFACE cxx_std_17)
install(TARGETS kivr EXPORT kivr LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivr
        FILES_MATCHING PATTERN "*.h")

if(TARGET kivr_emulator)
    set_target_properties(kivr_emulator PROPERTIES EXPORT_NAME emulator)
    target_compile_features(kivr_emulator INTERFACE cxx_std_17)
    install(TARGETS kivr_emulator EXPORT kivr LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivr_emulator)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivr_emulator FILES_MATCHING PATTERN "*.h")
    install(FILES ${PROJECT_SOURCE_DIR}/emulator/ModemEmulator.h
            ${PROJECT_SOURCE_DIR}/emulator/Scenario.h
            ${PROJECT_SOURCE_DIR}/emulator/ScenarioFile.h
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivr_emulator)
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
configure_file(${PROJECT_SOURCE_DIR}/cmake/kivr.pc.in ${PROJECT_BINARY_DIR}/kivr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kivr.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
