# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Whether help, manual pages and completions name the same commands and options.

manual_test.py TIDEWELL DOCS/MAN
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

NAME = re.compile(r"(?<![\w-])--?[a-z0-9][\w-]*")


def output(*command, **more):
    return subprocess.run(command, capture_output=True, text=True, check=True, **more).stdout


class Program:
    def __init__(self, path, manual):
        self.path, self.manual = path, manual
        self.completions = {shell: output(path, "completion", shell) for shell in ("bash", "zsh", "fish")}

    def commands(self):
        return re.findall(r"^  (\w+) ", output(self.path, "help"), re.M)

    def from_help(self, command):
        terms = re.findall(r"^ {2,6}(-.*?)(?:  |$)", output(self.path, "help", command), re.M)
        return {name for term in terms for name in NAME.findall(term)}

    def from_page(self, command):
        page = (self.manual / f"tidewell-{command}.1.scd").read_text(encoding="utf-8")
        section = re.search(r"^# OPTIONS\n(.*?)(?=^# |\Z)", page, re.M | re.S).group(1)
        return {name for line in re.findall(r"^\*-.*", section, re.M) for name in NAME.findall(line)}

    def from_bash(self, command):
        return set(self.replies("tidewell", command, "-"))

    def replies(self, *words):
        script = f"{self.completions['bash']}\nCOMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1)); _tidewell 2>/dev/null\n" \
                 'printf "%s\\n" "${COMPREPLY[@]}"'
        path = f"{pathlib.Path(self.path).parent}:{os.environ['PATH']}"
        return output("bash", "-c", script, "bash", *words, env={**os.environ, "PATH": path}).split("\n")[:-1]

    def from_zsh(self, command):
        case = re.search(rf"^    {command}\)\n(.*?);;", self.completions["zsh"], re.M | re.S).group(1)
        return {name for line in re.findall(r"'[^']*?\)?(--?[\w-]+)[=+]?\[", case) for name in NAME.findall(line)}

    def from_fish(self, command):
        lines = re.findall(rf"^.*__fish_seen_subcommand_from {command}' (.*?)(?: -d |$)", self.completions["fish"], re.M)
        found = [re.findall(r"-([ls]) ([\w-]+)", line) for line in lines]
        return {("--" if kind == "l" else "-") + name for line in found for kind, name in line}


def main(path, manual):
    program = Program(path, pathlib.Path(manual))
    commands = program.commands()
    faults = []

    def compare(what, found, expected):
        if set(found) != set(expected):
            faults.append(f"{what}: {sorted(set(found) ^ set(expected))}")

    for command in commands:
        options = program.from_help(command)
        for source in ("page", "bash", "zsh", "fish"):
            compare(f"{command}, {source}", getattr(program, f"from_{source}")(command) - {"--"}, options)
        compare(f"{command} -h", program.from_help(command), options)
    pages = {page.name for page in program.manual.glob("tidewell-*")} - {"tidewell-desktop.1.scd"}  # not a command of it
    compare("pages", pages, {f"tidewell-{command}.1.scd" for command in commands})
    compare("commands, bash", program.replies("tidewell", ""), [*commands, "--help", "--version"])
    compare("commands, page", re.findall(r"^\*([a-z]+)\*$", (program.manual / "tidewell.1.scd").read_text(), re.M),
            commands)
    compare("colours", program.replies("tidewell", "compress", "--color", ""), ["auto", "never", "always"])
    compare("shells", program.replies("tidewell", "completion", "z"), ["zsh"])
    for shell in program.completions:
        if shutil.which(shell):
            output(shell, "-n", "/dev/stdin", input=program.completions[shell])
    print("\n".join(faults))
    return 1 if faults or not commands else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
