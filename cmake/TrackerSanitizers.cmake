# Sanitizer builds instrument every target, the simulator and the tests included.
if(TRACKER_SANITIZER STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    if(TRACKER_BUILD_FUZZERS)
        # clang's pointer-overflow check trips over rapidjson 1.1 (Debian's), which offsets a null
        # pointer in its parse stack; the fuzzers feed it every kind of text.
        add_compile_options(-fno-sanitize=pointer-overflow)
    endif()
elseif(TRACKER_SANITIZER STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT TRACKER_SANITIZER STREQUAL "")
    message(FATAL_ERROR "TRACKER_SANITIZER must be empty, address or thread")
endif()
