# Sources a fuzz target needs beyond the core library (shared by the fuzz build and the corpus replay
# of the normal build). brivon_fuzz_extras(<cmake target> <fuzz target name>)
function(brivon_fuzz_extras target name)
    if(name STREQUAL "fuzz_bleprofiles")
        # The BlueZ plug-in's profile table reader, compiled in on its own.
        set(plugin_dir "${CMAKE_SOURCE_DIR}/plugins/ble-bluez")
        target_sources(${target} PRIVATE "${plugin_dir}/bleprofiles.cpp" "${plugin_dir}/bleprofiles.h")
        target_include_directories(${target} PRIVATE "${plugin_dir}")
    endif()
endfunction()
