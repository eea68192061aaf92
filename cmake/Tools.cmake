# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# The programs that the service runs, those of packaging/tools.txt, beside the executable, in the build tree as in an
# installed one, and with them tools.json, which says what they are. Configuring copies what this machine has and never
# fetches anything; the target "tools" gets the rest.

set(tools_manifest "${CMAKE_SOURCE_DIR}/packaging/tools.txt")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${tools_manifest}")
file(STRINGS "${tools_manifest}" tools_names REGEX "^programs: ")
list(TRANSFORM tools_names REPLACE "^programs: " "")
string(REPLACE ";" " " tools_names "${tools_names}")

set(tools_folder "${programs_folder}/tools")
set(tools_directory "${CMAKE_BINARY_DIR}/${tools_folder}")
file(MAKE_DIRECTORY "${tools_directory}")

execute_process(
  COMMAND "${CMAKE_SOURCE_DIR}/scripts/get-tools" --cached "${tools_directory}"
  RESULT_VARIABLE tools_result OUTPUT_VARIABLE tools_output ERROR_VARIABLE tools_output
  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_STRIP_TRAILING_WHITESPACE)
if(tools_result EQUAL 0)
  message(STATUS "Tools: ready in ${tools_directory}")
else()
  message(STATUS "Tools: ${tools_output}\n   The service needs them to compress; get them with\n"
    "   cmake --build ${CMAKE_BINARY_DIR} --target tools")
endif()

add_custom_target(tools
  COMMAND "${CMAKE_SOURCE_DIR}/scripts/get-tools" "${tools_directory}"
  COMMENT "Getting the tools" USES_TERMINAL VERBATIM)

# What lies there at the time of installing, whether it came by configuring or by the target.
install(DIRECTORY "${tools_directory}/" DESTINATION ${tools_folder} USE_SOURCE_PERMISSIONS)
install(CODE "
  foreach(tool ${tools_names} tools.json)
    if(NOT EXISTS \"${tools_directory}/\${tool}\")
      message(NOTICE \"Not installed, it is not in the build tree: \${tool}\")
    endif()
  endforeach()")
