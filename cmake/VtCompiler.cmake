# Language level, warnings, hardening and sanitizers: one place, for every target of the tree.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
    message(FATAL_ERROR "g++ ${CMAKE_CXX_COMPILER_VERSION} is too old: version 12 or newer is needed")
endif()

include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

# The figures of the statistics are written for plain IEEE arithmetic, so the compiler may not fuse operations;
# source paths are cut so that neither binaries nor assertion reports show where the tree was built.
add_compile_options(-ffp-contract=off "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=" -pthread -fno-omit-frame-pointer)
add_link_options(-pthread)

add_compile_options(
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-align -Wcast-qual -Wformat=2
    -Wundef -Wvla -Wnull-dereference -Wdouble-promotion
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
    $<$<COMPILE_LANGUAGE:CXX>:-Wextra-semi>)
# Told by the flow analysis of the optimiser, which sees such places in headers of libraries that it has inlined.
add_compile_options(-Wno-error=null-dereference)

# -O2 as the distribution builds; a sanitizer replaces the fortified library calls with its own checks.
set(CMAKE_C_FLAGS_RELEASE "-O2")
set(CMAKE_CXX_FLAGS_RELEASE "-O2")
set(CMAKE_C_FLAGS_DEBUG "-Og -g")
set(CMAKE_CXX_FLAGS_DEBUG "-Og -g")

if(VT_SANITIZE)
    add_compile_options(-fsanitize=${VT_SANITIZE} -fno-sanitize-recover=all -g1 -O1)
    add_link_options(-fsanitize=${VT_SANITIZE})
    # gcc's flow analysis sees null dereferences and uninitialised values in the instrumentation itself.
    add_compile_options(-Wno-null-dereference $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
else()
    add_compile_options(-fstack-protector-strong $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
    add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

# RUNPATH, not RPATH: LD_LIBRARY_PATH stays first.
add_link_options(-Wl,--enable-new-dtags)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Optimised builds let the linker compile across the layers, so that the thin ones cost nothing: a scoped guard comes
# out as the bare lock and unlock. A library keeps its ordinary code beside, for the many test programs link faster
# with that.
# vt_inline_across_layers(<library or executable>...)
function(vt_inline_across_layers)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        set_target_properties(${ARGN} PROPERTIES VT_INLINE_ACROSS_LAYERS ON)
    endif()
endfunction()
set(szInlined "$<BOOL:$<TARGET_PROPERTY:VT_INLINE_ACROSS_LAYERS>>")
add_compile_options("$<$<AND:$<CONFIG:Release>,${szInlined}>:-flto=auto;-ffat-lto-objects>")
# Said to those as well that do not take part: they would take the compiled half of a library for nothing otherwise.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_link_options($<$<CONFIG:Release>:$<IF:${szInlined},-flto=auto,-fno-lto>>)
endif()
