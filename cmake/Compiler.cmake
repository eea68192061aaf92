# Warnings, sanitizers and hardening shared by every target of ours.
add_library(tidewell_options INTERFACE)
target_compile_options(tidewell_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wnon-virtual-dtor
  -fstack-protector-strong)
# GCC 12 sees overlapping copies in std::string's operator+ that are not there (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tidewell_options INTERFACE -Wno-restrict)
endif()
if(TIDEWELL_WERROR)
  target_compile_options(tidewell_options INTERFACE -Werror)
endif()
if(TIDEWELL_SANITIZE)
  target_compile_options(tidewell_options INTERFACE
    -fsanitize=${TIDEWELL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(tidewell_options INTERFACE -fsanitize=${TIDEWELL_SANITIZE})
elseif(CMAKE_BUILD_TYPE MATCHES "Release|RelWithDebInfo")
  target_compile_definitions(tidewell_options INTERFACE _FORTIFY_SOURCE=2)
endif()
target_compile_definitions(tidewell_options INTERFACE _FILE_OFFSET_BITS=64)
