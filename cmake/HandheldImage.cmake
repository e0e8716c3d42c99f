# How images for Windows CE are compiled and linked: on x86 by the tools of 32-bit Windows, on ARM as ELF files that
# tools/make-ce-image turns into images.

set(QUILLA_COREDLL_NAMES ${PROJECT_SOURCE_DIR}/platform/ce/coredll.txt)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL armv5)
    set(QUILLA_HANDHELD_ARM TRUE)
    set(WIN32 TRUE)
    set(CMAKE_POSITION_INDEPENDENT_CODE OFF) # an image has base relocations instead
    # The words in the headers' __declspec() that mean nothing in an ELF file are left out there.
    target_compile_options(quilla_product INTERFACE -D_WIN32 "-D__declspec(x)=__attribute__((x))"
        -nostdinc++ -nostdlibinc -fno-use-cxa-atexit -Wno-ignored-attributes -Wno-unknown-attributes)
    target_link_options(quilla_product INTERFACE -fuse-ld=lld -nostdlib -Wl,--emit-relocs -Wl,--gc-sections
        -Wl,-T,${PROJECT_SOURCE_DIR}/platform/ce/arm_image.ld)
else()
    # Calls and callbacks of the system are cdecl there.
    target_compile_options(quilla_product INTERFACE -march=i586 -Wno-psabi -U__stdcall -D__stdcall=__cdecl
        -U_stdcall -D_stdcall=__cdecl)
    target_link_options(quilla_product INTERFACE -nostdlib -nostartfiles -s -Wl,--gc-sections -Wl,--disable-dynamicbase
        -Wl,--disable-nxcompat -Wl,--disable-auto-import -Wl,--subsystem,wince:5.0)
endif()

# quilla_image(FILE [LIBRARY] ENTRY function BASE address [RESOURCES target] SOURCES ... LINKS ...): an image in bin/, its imports checked.
function(quilla_image file)
    cmake_parse_arguments(IMAGE "LIBRARY" "ENTRY;BASE;RESOURCES" "SOURCES;LINKS" ${ARGN})
    get_filename_component(name ${file} NAME_WE)
    set(image ${PROJECT_BINARY_DIR}/bin/${file})
    set(convert)
    if(QUILLA_HANDHELD_ARM)
        add_executable(${name} ${IMAGE_SOURCES})
        target_link_libraries(${name} PRIVATE arm_imports)
        set_target_properties(${name} PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/platform/ce/arm_image.ld)
        set_target_properties(${name} PROPERTIES SUFFIX .elf)
        target_link_options(${name} PRIVATE -Wl,--entry,${IMAGE_ENTRY} -Wl,--defsym,IMAGE_BASE=${IMAGE_BASE})
        set(convert COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/bin
            COMMAND ${PROJECT_SOURCE_DIR}/tools/make-ce-image $<TARGET_FILE:${name}> ${image})
        if(IMAGE_LIBRARY)
            list(APPEND convert --library)
        endif()
        if(IMAGE_RESOURCES)
            list(APPEND convert --resources ${PROJECT_BINARY_DIR}/ui/${IMAGE_RESOURCES}.obj)
            add_dependencies(${name} ${IMAGE_RESOURCES})
        endif()
    else()
        if(IMAGE_LIBRARY)
            add_library(${name} SHARED ${IMAGE_SOURCES})
        else()
            add_executable(${name} WIN32 ${IMAGE_SOURCES})
        endif()
        set_target_properties(${name} PROPERTIES PREFIX "" RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
        if(IMAGE_RESOURCES)
            target_link_libraries(${name} PRIVATE ${IMAGE_RESOURCES})
        endif()
        target_link_options(${name} PRIVATE -Wl,--entry,_${IMAGE_ENTRY} -Wl,--image-base,${IMAGE_BASE})
    endif()
    target_link_libraries(${name} PRIVATE ${IMAGE_LINKS} small_runtime)
    add_custom_command(TARGET ${name} POST_BUILD ${convert}
        COMMAND ${PROJECT_SOURCE_DIR}/tools/check-ce-image ${image} VERBATIM)
endfunction()
