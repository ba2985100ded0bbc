# Sanitizer builds instrument every target, the simulator and the tests included.
if(TRACKER_SANITIZER STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(TRACKER_SANITIZER STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT TRACKER_SANITIZER STREQUAL "")
    message(FATAL_ERROR "TRACKER_SANITIZER must be empty, address or thread")
endif()
