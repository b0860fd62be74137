# BRIVON_SANITIZE=ON builds the program, its plug-ins, tools and tests with AddressSanitizer and
# UndefinedBehaviorSanitizer. Undefined behaviour aborts rather than being reported and carried on
# from, so that a test meeting it fails. Tests then run through scripts/sanitized-test.sh, which
# fails a suite when any process it started (the real executable included) wrote a report.
option(BRIVON_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(BRIVON_SANITIZE)
    if(BRIVON_FUZZ)
        message(FATAL_ERROR "BRIVON_FUZZ builds with the sanitizers already; BRIVON_SANITIZE is for the test build")
    endif()
    # vptr checks need type information that the uninstrumented Qt libraries do not carry.
    set(BRIVON_SANITIZER_FLAGS
        -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_compile_options(${BRIVON_SANITIZER_FLAGS})
    add_link_options(-fsanitize=address,undefined)
    set(BRIVON_SANITIZER_SUPPRESSIONS "${CMAKE_SOURCE_DIR}/tests/sanitizer/lsan.supp")
endif()
