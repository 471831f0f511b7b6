# kivr_add_headers(target folder header...): whoever links the target includes <folder/HEADER>, be it
# from the build tree or from an installation. The bare "HEADER" works too, but is looked for last, so
# that it hides no header of a client.
function(kivr_add_headers target folder)
    set(place ${PROJECT_BINARY_DIR}/include)
    set(bare "")
    file(MAKE_DIRECTORY ${place}/${folder})
    foreach(header IN LISTS ARGN)
        cmake_path(GET header FILENAME name)
        cmake_path(GET header PARENT_PATH folderInTree)
        file(CREATE_LINK ${header} ${place}/${folder}/${name} SYMBOLIC)
        list(APPEND bare -idirafter${folderInTree})
    endforeach()
    list(REMOVE_DUPLICATES bare)
    target_include_directories(${target} INTERFACE
        $<BUILD_INTERFACE:${place}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_options(${target} INTERFACE
        "$<BUILD_INTERFACE:${bare}>"
        $<INSTALL_INTERFACE:-idirafter$<INSTALL_PREFIX>/${CMAKE_INSTALL_INCLUDEDIR}/${folder}>)
    if(KIVR_INSTALL)
        install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
    endif()
endfunction()
