# How programs get at the board's library: which one, and which folders they remember.

# vt_link_needed(<program> <library>): those that call the board come behind it on the command line, and a linker that
# drops what nobody before has asked for would drop it.
function(vt_link_needed szProgram szLibrary)
    target_link_libraries(${szProgram} PRIVATE -Wl,--push-state,--no-as-needed ${szLibrary} -Wl,--pop-state)
endfunction()

# vt_link_given_board(<program> <file>): links the library and remembers its folder, that one alone. CMake would pad a
# path that it edits on installing with empty entries, which the loader takes for the current folder.
function(vt_link_given_board szProgram szFile)
    vt_link_needed(${szProgram} "${szFile}")
    cmake_path(GET szFile PARENT_PATH szFolder)
    cmake_path(ABSOLUTE_PATH szFolder BASE_DIRECTORY "${CMAKE_BINARY_DIR}" NORMALIZE)
    set_target_properties(${szProgram} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${szFolder}")
endfunction()

# vt_link_board(<program>): the program calls BoardLoader_Load before the first operation of the interface.
function(vt_link_board szProgram)
    target_link_libraries(${szProgram} PRIVATE BoardLoader)
    set_target_properties(${szProgram} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "")
    if(VELTRANO_LIBRARY)
        vt_link_given_board(${szProgram} "${VELTRANO_LIBRARY}")
    elseif(NOT VT_BOARD_FALLBACK)
        # The loader alone decides, as it does for a package.
        vt_link_needed(${szProgram} SimulatedBoard)
    else()
        add_dependencies(${szProgram} SimulatedBoard)
    endif()
endfunction()
