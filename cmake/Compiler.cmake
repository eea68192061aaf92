# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# Warnings, sanitizers and hardening shared by every target of ours.
add_library(tidewell_options INTERFACE)
target_compile_options(tidewell_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wnon-virtual-dtor
  -fstack-protector-strong)
# Whoever adds a format, or an outcome, is led to every place that tells them apart.
target_compile_options(tidewell_options INTERFACE -Werror=switch)
# GCC 12 sees overlapping copies in std::string's operator+ that are not there (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tidewell_options INTERFACE -Wno-restrict)
endif()
# What GCC leaves out of -Wconversion in C++.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(tidewell_options INTERFACE -Wno-sign-conversion)
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
if(TIDEWELL_COVERAGE)
  target_compile_options(tidewell_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tidewell_options INTERFACE --coverage)
endif()
target_compile_definitions(tidewell_options INTERFACE _FILE_OFFSET_BITS=64)

# What nearly every source includes takes half of the compiler's time when it is read anew for each. Few headers: GCC
# needs longer to load all of the standard library than to read some. Sources name what they need all the same: where
# warnings are errors they are built without, also because GCC takes <string> for a header of ours then and warns of
# overflows in it that are none. -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON builds everything without.
#
# ccache has to be told to keep what is compiled with them; with Clang it never does.
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache$")
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
  endif()
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros "${CMAKE_CXX_COMPILER_LAUNCHER}")
endif()
set(precompiled_headers <algorithm> <functional> <memory> <optional> <span> <string> <string_view> <vector>)
if(NOT TIDEWELL_WERROR)
  add_library(tidewell_precompiled OBJECT "${CMAKE_CURRENT_LIST_DIR}/Precompiled.cpp")
  target_link_libraries(tidewell_precompiled PRIVATE tidewell_options)
  target_precompile_headers(tidewell_precompiled PRIVATE ${precompiled_headers})
endif()

# Builds the targets with them.
function(precompile)
  if(TIDEWELL_WERROR)
    return()
  endif()
  foreach(target IN LISTS ARGV)
    target_precompile_headers(${target} REUSE_FROM tidewell_precompiled)
  endforeach()
endfunction()
