# Run by the build: makes one source file that holds files as data, plain and compressed, with type and entity tag.
#   OUTPUT   the source file
#   FILES    "<path on the server>=<file>", separated by commas
string(REPLACE "," ";" aszFiles "${FILES}")
get_filename_component(szFolder "${OUTPUT}" DIRECTORY)
set(szTable "")
set(szData "")
set(iFile 0)
set(szTypehtml "text/html; charset=utf-8")
set(szTypejs "text/javascript; charset=utf-8")
set(szTypecss "text/css; charset=utf-8")
set(szTypesvg "image/svg+xml")
set(szTypepng "image/png")
set(szTypeico "image/x-icon")
foreach(szEntry IN LISTS aszFiles)
    string(REGEX MATCH "^([^=]+)=(.+)$" szMatch "${szEntry}")
    set(szPath "${CMAKE_MATCH_1}")
    set(szFile "${CMAKE_MATCH_2}")
    string(REGEX MATCH "[^.]+$" szExtension "${szFile}")
    if(NOT DEFINED szType${szExtension})
        message(FATAL_ERROR "${szFile}: no content type is known for .${szExtension}")
    endif()
    file(SHA256 "${szFile}" szHash)
    string(SUBSTRING "${szHash}" 0 24 szHash)
    set(szPacked "${szFolder}/embedded-${iFile}.gz")
    execute_process(COMMAND gzip -9 -n -c "${szFile}" OUTPUT_FILE "${szPacked}" COMMAND_ERROR_IS_FATAL ANY)
    foreach(szForm "Plain;${szFile}" "Gzip;${szPacked}")
        list(GET szForm 0 szName)
        list(GET szForm 1 szSource)
        file(SIZE "${szSource}" iSize${szName})
        string(APPEND szData
            "asm(\".section .rodata\\n.local g_ach${szName}${iFile}\\n"
            "g_ach${szName}${iFile}: .incbin \\\"${szSource}\\\"\\n.previous\");\n"
            "extern \"C\" const char g_ach${szName}${iFile}[];\n")
    endforeach()
    string(APPEND szTable "    {\"${szPath}\", \"${szType${szExtension}}\", \"${szHash}\", "
        "{g_achPlain${iFile}, ${iSizePlain}}, {g_achGzip${iFile}, ${iSizeGzip}}},\n")
    math(EXPR iFile "${iFile} + 1")
endforeach()
file(WRITE "${OUTPUT}" "// Made by cmake/EmbedFiles.cmake.\n#include \"PageFiles.h\"\n\n${szData}\n"
    "static const SPageFile g_aoFiles[] = {\n${szTable}};\n\n"
    "std::span<const SPageFile> PageFiles_GetAll() { return g_aoFiles; }\n")
