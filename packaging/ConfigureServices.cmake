# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# Runs while installing: writes the files that name the executable.
#
#   executable   its path after installing    names, source, destination   the templates without ".in", their folder
#                                             and that of the results
get_filename_component(executable "${executable}" ABSOLUTE)

# In quotes as each reader wants them: the bus undoes the escapes of key files, then splits like a shell; the
# service manager also expands "%".
string(REGEX REPLACE "([\"\\\\$`])" "\\\\\\1" dbus_executable "${executable}")
string(REPLACE "\\" "\\\\" dbus_executable "\"${dbus_executable}\"")
string(REGEX REPLACE "([\"\\\\])" "\\\\\\1" systemd_executable "${executable}")
string(REPLACE "%" "%%" systemd_executable "${systemd_executable}")
set(systemd_executable "\"${systemd_executable}\"")

foreach(name IN LISTS names)
  configure_file("${source}/${name}.in" "${destination}/${name}" @ONLY)
endforeach()
