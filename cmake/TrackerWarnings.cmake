# Warnings every target of the project is built with.
add_library(tracker_warnings INTERFACE)
target_compile_options(tracker_warnings INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
                                                  -Wformat=2)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Makes the mutex annotations on members and ...Locked helpers count.
    target_compile_options(tracker_warnings INTERFACE -Wthread-safety)
endif()
